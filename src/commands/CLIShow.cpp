// Replies as a person reads them.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "commands/CLI.h"
#include "commands/Columns.h"
#include "commands/Output.h"
#include "commands/Wire.h"
#include "core/Dates.h"
#include "core/Json.h"

namespace tovi {

namespace {

std::string textOr(const json::Value& object, std::string_view key, const char* otherwise = "") {
  return json::textAt(object, key).value_or(otherwise);
}

double numberOrZero(const json::Value& object, std::string_view key) { return json::numberAt(object, key).value_or(0); }

const json::Value& listAt(const json::Value& object, std::string_view key) {
  static const json::Value kNone = json::Value::array();
  const json::Value* list = json::member(object, key);
  return list != nullptr && list->is_array() ? *list : kNone;
}

std::string holdLine(const json::Value& hold) {
  std::string line = "hold " + textOr(hold, "id");
  const auto until = json::textAt(hold, "until");
  if (const auto date = until ? dates::parseIso8601(*until) : std::nullopt) line += " until " + dates::shortTime(*date);
  return line;
}

std::string batteryLine(const json::Value& battery) {
  const std::string draw = json::boolAt(battery, "on_power").value_or(false)
                               ? "on power"
                               : fmt::format("{:.1f} W", numberOrZero(battery, "watts"));
  return fmt::format("battery {}% {}", json::integerAt(battery, "percent").value_or(0), draw);
}

std::string activity(const json::Value& session) {
  if (json::boolAt(session, "running_command").value_or(false)) return "working (running a command)";
  if (json::boolAt(session, "working").value_or(false)) return "working";
  const auto minutes = json::integerAt(session, "idle_minutes").value_or(-1);
  return minutes < 0 ? "idle" : fmt::format("idle for {} min", minutes);
}

void printRows(const std::vector<ColumnRow>& rows, Output& output) {
  for (const std::string& line : columnLines(rows, output.isTerminal())) output.line(output.shown(line));
}

void printSessions(const json::Value& reply, Output& output) {
  std::vector<ColumnRow> rows;
  for (const json::Value& session : listAt(reply, "watching")) {
    std::string name = textOr(session, "name");
    if (const auto count = json::integerAt(session, "instances").value_or(1); count > 1) {
      name += fmt::format(" ×{}", count);
    }
    rows.push_back({std::move(name), textOr(session, "project"), activity(session)});
  }
  printRows(rows, output);
}

std::string beforeAndAfter(const json::Value& measured) {
  return fmt::format("{:6.2f} W → {:6.2f} W", numberOrZero(measured, "before_watts"),
                     numberOrZero(measured, "after_watts"));
}

void printApps(const json::Value& apps, Output& output) {
  std::vector<ColumnRow> rows;
  for (const json::Value& app : apps) {
    if (json::member(app, "before_watts") != nullptr) {
      rows.push_back({"  " + beforeAndAfter(app), textOr(app, "name"), ""});
      continue;
    }
    rows.push_back({fmt::format("  {:6.2f} W", numberOrZero(app, "watts")), textOr(app, "name"),
                    fmt::format("({})", textOr(app, "while_closed"))});
  }
  printRows(rows, output);
}

}  // namespace

int CLI::show(const nlohmann::json& reply, bool raw, Output& output) {
  const bool failed = json::boolAt(reply, "ok") == false;
  if (raw) {
    output.line(Wire::json(reply));
    return failed ? 1 : 0;
  }
  if (failed) {
    output.errorLine("tovi: " + textOr(reply, "error", "failed"));
    return 1;
  }
  const auto say = [&](std::string_view text, Output::Ink ink = Output::Ink::plain) {
    output.line(output.shown(text, ink));
  };
  if (const auto status = json::textAt(reply, "status")) say(*status, Output::Ink::strong);
  if (const auto* hold = json::member(reply, "hold")) say(holdLine(*hold));
  if (const auto* battery = json::member(reply, "battery")) say(batteryLine(*battery));
  if (const auto hours = json::numberAt(reply, "hours_left_closed")) {
    say(fmt::format("lid closed: ≈{:.1f} h left (≈{:.1f} W, estimated)", *hours,
                    numberOrZero(reply, "closed_estimate_watts")));
  }
  if (const auto warning = json::textAt(reply, "warning")) say("note: " + *warning);
  std::vector<std::string> left;
  for (const json::Value& item : listAt(reply, "not_put_back_yet")) left.push_back(json::asText(item).value_or(""));
  if (!left.empty()) say(fmt::format("not put back yet: {}", fmt::join(left, ", ")));
  printSessions(reply, output);
  if (json::member(reply, "before_watts") != nullptr)
    say("  " + beforeAndAfter(reply) + "  all that the lid would treat");
  printApps(listAt(reply, "apps"), output);
  printApps(listAt(reply, "apps_using_energy"), output);
  if (const auto released = json::integerAt(reply, "released")) say(fmt::format("released {}", *released));
  if (const auto path = json::textAt(reply, "path")) say(*path);
  if (const auto* config = json::member(reply, "config")) say(Wire::json(*config));
  return 0;
}

}  // namespace tovi
