// The listing of the settings.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "commands/Columns.h"
#include "core/Json.h"

namespace tovi {

namespace {

std::string textOf(const json::Value& object, std::string_view key) { return json::textAt(object, key).value_or(""); }

// As it would be typed.
std::string typed(const json::Value& value) {
  if (const auto flag = json::asBool(value)) return *flag ? "on" : "off";
  const auto text = json::asText(value);
  return text && !text->empty() ? *text : json::compact(value);
}

std::string typedAt(const json::Value& object, std::string_view key) {
  const json::Value* value = json::member(object, key);
  return value != nullptr ? typed(*value) : "";
}

std::string choicesOf(const json::Value& setting) {
  std::vector<std::string> choices;
  if (const json::Value* allowed = json::member(setting, "allowed"); allowed != nullptr && allowed->is_array()) {
    for (const json::Value& choice : *allowed) choices.push_back(typed(choice));
  }
  return fmt::format("{}", fmt::join(choices, "|"));
}

}  // namespace

int CLI::settings(Context& context, const Words& words) {
  const nlohmann::json reply = context.client.send("schema", nlohmann::json::object(), kUsualTimeout);
  const bool raw = std::ranges::find(words, "--json") != words.end();
  return raw ? show(reply, true, context.output) : showSettings(reply, context.output);
}

int CLI::showSettings(const nlohmann::json& reply, Output& output) {
  const json::Value* settings = json::member(reply, "settings");
  if (settings == nullptr || !settings->is_array()) return show(reply, false, output);
  std::vector<ColumnRow> rows;
  for (const json::Value& setting : *settings) {
    rows.push_back({textOf(setting, "key"), typedAt(setting, "value"), choicesOf(setting)});
  }
  const auto lines = columnLines(rows, output.isTerminal());
  for (std::size_t at = 0; at < lines.size(); ++at) {
    // The key stands out; padding may follow it.
    const std::size_t end = std::min(rows[at][0].size(), lines[at].size());
    output.line(output.shown(lines[at].substr(0, end), Output::Ink::strong) + output.shown(lines[at].substr(end)));
    for (const char* key : {"description", "note"}) {
      const auto text = json::textAt((*settings)[at], key);
      if (text) output.line("  " + output.shown(*text, Output::Ink::faint));
    }
  }
  output.line("\nChange with: tovi set <key> <value>. Per-app rules: tovi rule <app> leave|slow|pause. File: " +
              textOf(reply, "config_file"));
  return 0;
}

}  // namespace tovi
