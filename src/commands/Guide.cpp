#include "commands/Guide.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ranges>

#include "commands/CLI.h"
#include "commands/CLITexts.h"
#include "commands/MCPTools.h"
#include "core/SettingsSchema.h"
#include "core/Text.h"

namespace tovi {

namespace {

using Guide::Choice;
using Guide::Place;
using Guide::Topic;

// Beyond the usage text: words that a person hardly types, and summaries that have no room there.
struct Extra {
  const char* synopsis;
  const char* summary;
};
constexpr Extra kExtras[] = {
    {"preset max_battery|balanced|full_speed", "what happens to other apps while the lid is closed"},
    {"setup", "the one-time set-up, which asks for a password once"},
    {"uninstall", "put everything back and take the set-up away again"},
    {"snapshot [name.png] [panel|window|settings]", "save a picture of a window in Tovi's folder"},
    {"island [title] [subtitle]", "show an announcement in the notch island"},
    {"watchdog", "put back what a crashed Tovi left behind (runs by itself every minute)"},
    {"help", "the most important of these on one page"},
};

// Options that are read by the words themselves.
struct OwnOption {
  std::string_view word;
  std::string_view option;
};
constexpr OwnOption kOwnOptions[] = {
    {"run", "--reason"},
    {"run", "--"},
    {"power", "--detailed"},
    {"power", "--screen"},
};

constexpr std::string_view kLead = "  tovi ";

// "auto | off", "on|always [--for 2h]": the words before anything else.
std::vector<std::string> leadingWords(std::string_view synopsis) {
  std::vector<std::string> words;
  bool more = true;
  for (const std::string_view piece : text::pieces(synopsis, " ")) {
    if (piece == "|") {
      more = true;
    } else if (more) {
      for (const std::string_view word : text::pieces(piece, "|")) words.emplace_back(word);
      more = false;
    } else {
      break;
    }
  }
  return words;
}

Topic topicFrom(std::string_view line) {
  line.remove_prefix(kLead.size());
  const auto gap = line.find("  ");
  const std::string synopsis{line.substr(0, gap)};
  const std::string summary{gap == std::string_view::npos ? "" : text::trimmed(line.substr(gap))};
  return {leadingWords(synopsis), synopsis, summary};
}

template <class Texts>
std::vector<Choice> choices(const Texts& texts) {
  std::vector<Choice> result;
  for (const std::string_view text : texts) {
    if (!text.empty()) result.push_back({std::string{text}});
  }
  return result;
}

std::vector<Choice> valuesOf(std::string_view setting) {
  const SettingSpec* spec = SettingsSchema::spec(setting);
  return spec != nullptr ? choices(spec->allowed) : std::vector<Choice>{};
}

std::vector<Choice> rules() {
  for (const MCPTools::Tool& tool : MCPTools::all()) {
    if (tool.command != "rule") continue;
    for (const MCPTools::Parameter& parameter : tool.parameters) {
      if (parameter.name == "rule") return choices(parameter.choices);
    }
  }
  return {};
}

std::vector<Choice> fixed(std::initializer_list<std::string_view> texts) { return choices(texts); }

}  // namespace

std::vector<Topic> Guide::topics() {
  std::vector<Topic> topics;
  for (const std::string_view line : text::pieces(CLITexts::kUsage, "\n")) {
    if (line.starts_with(kLead)) {
      topics.push_back(topicFrom(line));
    } else if (line.starts_with("   ") && !topics.empty()) {
      topics.back().summary = text::trimmed(line);  // of a synopsis that fills its own line
    }
  }
  for (const Extra& extra : kExtras) {
    const auto known = std::ranges::find(topics, extra.synopsis, &Topic::synopsis);
    if (known == topics.end()) {
      topics.push_back({leadingWords(extra.synopsis), extra.synopsis, extra.summary});
    } else {
      known->summary = extra.summary;
    }
  }
  return topics;
}

std::vector<std::string_view> Guide::otherNames(std::string_view word) {
  std::vector<std::string> told;
  for (const Topic& topic : topics()) told.insert(told.end(), topic.words.begin(), topic.words.end());
  std::vector<std::string_view> others;
  for (const CLI::Vocable& vocable : CLI::vocabulary()) {
    if (vocable.names.front() != word) continue;
    for (const std::string_view name : vocable.names) {
      if (std::ranges::find(told, name) == told.end()) others.push_back(name);
    }
  }
  return others;
}

std::vector<Place> Guide::places() {
  std::vector<Place> places{
      {"preset", 1, "", valuesOf("preset")},
      {"check-in", 1, "", valuesOf("check_in_minutes")},
      {"rule", 2, "", rules()},
      {"connect", 1, "", choices(CLI::connectWords())},
      {"open", 1, "", fixed({"panel", "window"})},
      {"snapshot", 2, "", fixed({"panel", "window", "settings"})},
      {"anyway", 1, "", fixed({"off"})},
      {"wake-at", 1, "", fixed({"off"})},
      {"power", 1, "", fixed({"test"})},
  };
  Place keys{"set", 1, "", {}};
  for (const SettingSpec& spec : SettingsSchema::all()) {
    keys.choices.push_back({std::string{spec.key}, std::string{spec.category}});
    // An int's is a range, which nobody can pick.
    if (spec.type != "int" && !spec.allowed.empty()) {
      places.push_back({"set", 2, std::string{spec.key}, choices(spec.allowed)});
    }
  }
  places.push_back(std::move(keys));
  return places;
}

std::vector<std::string> Guide::options(std::string_view word) {
  std::vector<std::string> options;
  for (const CLI::Vocable& vocable : CLI::vocabulary()) {
    if (std::ranges::find(vocable.names, word) == vocable.names.end()) continue;
    options.insert(options.end(), vocable.options.begin(), vocable.options.end());
  }
  for (const OwnOption& own : kOwnOptions) {
    if (own.word == word && std::ranges::find(options, own.option) == options.end()) options.emplace_back(own.option);
  }
  return options;
}

}  // namespace tovi
