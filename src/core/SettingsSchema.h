// The settings under their public names, with one way to read and to change each: for people at the command line and
// for agents. Whoever changes a setting here can tighten what keeps the machine safe, but not loosen it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string_view>

namespace tovi {

struct Config;
class StateFiles;

struct SettingSpec {
  // Completes the sentence "<key> needs ...". Absent: the value was taken.
  using Refusal = std::optional<std::string_view>;

  std::string_view key;                            // snake_case
  std::string_view type;                           // "enum", "bool", "int" or "string"
  std::span<const std::string_view> allowed = {};  // values, or one range; empty: not to be listed
  std::string_view category;
  std::string_view description;
  std::string_view note = {};  // a rule to know before changing it; empty: none
  nlohmann::json (*get)(const Config& config);

  // Takes text as well as JSON's own types. After a refusal `config` is as it was.
  Refusal (*set)(Config& config, const nlohmann::json& value);
};

// A setting that isn't one value, and where it is changed.
struct SettingList {
  std::string_view name;
  std::string_view how;
  std::string_view what;
};

namespace SettingsSchema {

// In the order of every listing.
std::span<const SettingSpec> all();
std::span<const SettingList> lists();

// By key or one of its other names, in any case, with "-" for "_" as well; null if there is none.
const SettingSpec* spec(std::string_view key);

// Every setting with its present value, and how to change it.
nlohmann::json describe(const Config& config, const StateFiles& state);

// A boolean, a number (true unless 0), or one of "on", "true", "yes", "1", "off", "false", "no", "0" in any case.
std::optional<bool> boolean(const nlohmann::json& value);

// A number, or text that is one, also with "%"; below a million either way. A fraction is cut off.
std::optional<int> integer(const nlohmann::json& value);

}  // namespace SettingsSchema
}  // namespace tovi
