#include "core/SettingsSchema.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "core/Config.h"
#include "core/Json.h"
#include "core/Text.h"

namespace tovi {

namespace {

using json::Value;

struct FlagWord {
  std::string_view word;
  bool value;
};

constexpr FlagWord kFlagWords[] = {
    {"on", true},  {"off", false}, {"true", true}, {"false", false},
    {"yes", true}, {"no", false},  {"1", true},    {"0", false},
};

struct OtherName {
  std::string_view name;
  std::string_view key;
};

constexpr OtherName kOtherNames[] = {
    {"screen_off_when_closed", "screen_off"},
    {"screen_off_no_lock", "screen_off"},
    {"low_power_mode", "low_power"},
    {"battery_limit", "battery_floor"},
};

constexpr double kTooLarge = 1'000'000;

constexpr std::string_view kHowToChange =
    "tovi set <key> <value>, MCP tovi_set_setting, or edit config.json (camelCase keys, reloads instantly).";

Value described(const SettingSpec& spec, const Config& config) {
  Value entry{{"key", spec.key},
              {"type", spec.type},
              {"category", spec.category},
              {"description", spec.description},
              {"value", spec.get(config)}};
  if (!spec.allowed.empty()) entry["allowed"] = spec.allowed;
  if (!spec.note.empty()) entry["note"] = spec.note;
  return entry;
}

}  // namespace

const SettingSpec* SettingsSchema::spec(std::string_view key) {
  std::string name = text::lowercased(key);
  std::ranges::replace(name, '-', '_');
  const auto other = std::ranges::find(kOtherNames, name, &OtherName::name);
  if (other != std::end(kOtherNames)) name = other->key;
  const auto found = std::ranges::find(all(), name, &SettingSpec::key);
  return found != all().end() ? &*found : nullptr;
}

nlohmann::json SettingsSchema::describe(const Config& config, const StateFiles& state) {
  Value settings = Value::array(), listed = Value::array();
  for (const SettingSpec& spec : all()) settings.push_back(described(spec, config));
  for (const SettingList& list : lists()) {
    listed.push_back({{"name", list.name}, {"how", list.how}, {"what", list.what}});
  }
  return {{"settings", std::move(settings)},
          {"lists", std::move(listed)},
          {"config_file", Config::path(state)},
          {"how_to_change", kHowToChange}};
}

std::optional<bool> SettingsSchema::boolean(const nlohmann::json& value) {
  if (const auto flag = json::asBool(value)) return flag;
  if (const auto number = json::asNumber(value)) return *number != 0;
  const auto words = json::asText(value);
  if (!words) return std::nullopt;
  const auto row = std::ranges::find(kFlagWords, text::lowercased(*words), &FlagWord::word);
  return row != std::end(kFlagWords) ? std::optional{row->value} : std::nullopt;
}

std::optional<int> SettingsSchema::integer(const nlohmann::json& value) {
  auto number = json::asNumber(value);
  if (const auto words = json::asText(value)) {
    std::string digits{text::trimmed(*words)};
    std::erase(digits, '%');
    number = text::decimal<double>(digits);
  }
  if (!number || !std::isfinite(*number) || std::abs(*number) >= kTooLarge) return std::nullopt;
  return static_cast<int>(*number);
}

}  // namespace tovi
