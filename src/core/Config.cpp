#include "core/Config.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "platform/Clock.h"

namespace tovi {

namespace {

using json::Value;

// How a value of each type is read from JSON; nothing for any other type. And how it is written.

template <class T>
std::optional<T> read(const Value& value);

template <>
std::optional<bool> read(const Value& value) {
  return json::asBool(value);
}

template <>
std::optional<int> read(const Value& value) {
  const auto number = json::asInteger(value);
  if (!number) return std::nullopt;
  return static_cast<int>(
      std::clamp<std::int64_t>(*number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

template <>
std::optional<std::string> read(const Value& value) {
  return json::asText(value);
}

template <class Enum>
requires std::is_enum_v<Enum> std::optional<Enum> readRaw(const Value& value) {
  const auto text = json::asText(value);
  return text ? fromRawValue<Enum>(*text) : std::nullopt;
}

template <>
std::optional<Mode> read(const Value& value) {
  return readRaw<Mode>(value);
}
template <>
std::optional<Preset> read(const Value& value) {
  return readRaw<Preset>(value);
}
template <>
std::optional<AppRule> read(const Value& value) {
  return readRaw<AppRule>(value);
}
template <>
std::optional<MenuBarText> read(const Value& value) {
  return readRaw<MenuBarText>(value);
}
template <>
std::optional<AppearanceChoice> read(const Value& value) {
  return readRaw<AppearanceChoice>(value);
}

// One bad element costs the whole list.
template <class T>
std::optional<std::vector<T>> readList(const Value& value) {
  if (!value.is_array()) return std::nullopt;
  std::vector<T> list;
  for (const Value& element : value) {
    auto item = read<T>(element);
    if (!item) return std::nullopt;
    list.push_back(std::move(*item));
  }
  return list;
}

template <>
std::optional<WatchedApp> read(const Value& value) {
  auto id = json::textAt(value, "id");
  auto name = json::textAt(value, "name");
  if (!id || !name) return std::nullopt;
  return WatchedApp{std::move(*id), std::move(*name)};
}

template <>
std::optional<std::vector<std::string>> read(const Value& value) {
  return readList<std::string>(value);
}

template <>
std::optional<CustomAgent> read(const Value& value) {
  auto name = json::textAt(value, "name");
  const Value* executables = json::member(value, "executables");
  if (!name || executables == nullptr) return std::nullopt;
  auto names = readList<std::string>(*executables);
  if (!names) return std::nullopt;
  CustomAgent agent{std::move(*name), std::move(*names), std::nullopt};
  if (const Value* watts = json::member(value, "idleWatts"); watts != nullptr && !watts->is_null()) {
    agent.idleWatts = json::asNumber(*watts);
    if (!agent.idleWatts) return std::nullopt;
  }
  return agent;
}

template <>
std::optional<std::vector<WatchedApp>> read(const Value& value) {
  return readList<WatchedApp>(value);
}
template <>
std::optional<std::vector<CustomAgent>> read(const Value& value) {
  return readList<CustomAgent>(value);
}

template <>
std::optional<std::map<std::string, AppRule>> read(const Value& value) {
  if (!value.is_object()) return std::nullopt;
  std::map<std::string, AppRule> rules;
  for (const auto& [bundle, element] : value.items()) {
    const auto rule = read<AppRule>(element);
    if (!rule) return std::nullopt;
    rules.emplace(bundle, *rule);
  }
  return rules;
}

// An optional field takes a value of its type; null and everything else is absence.
template <>
std::optional<std::optional<double>> read(const Value& value) {
  return std::optional{json::asNumber(value)};
}
template <>
std::optional<std::optional<Mode>> read(const Value& value) {
  return std::optional{readRaw<Mode>(value)};
}

Value write(bool value) { return value; }
Value write(int value) { return value; }
Value write(const std::string& value) { return value; }
Value write(const std::vector<std::string>& value) { return value; }
template <class Enum>
requires std::is_enum_v<Enum> Value write(Enum value) { return rawValue(value); }
Value write(const std::vector<WatchedApp>& apps) {
  Value list = Value::array();
  for (const auto& app : apps) list.push_back({{"id", app.id}, {"name", app.name}});
  return list;
}
Value write(const std::map<std::string, AppRule>& rules) {
  Value object = Value::object();
  for (const auto& [bundle, rule] : rules) object[bundle] = rawValue(rule);
  return object;
}
Value write(const std::vector<CustomAgent>& agents) {
  Value list = Value::array();
  for (const auto& agent : agents) {
    Value entry{{"name", agent.name}, {"executables", agent.executables}};
    if (agent.idleWatts) entry["idleWatts"] = *agent.idleWatts;
    list.push_back(std::move(entry));
  }
  return list;
}
Value write(const std::optional<double>& value) { return value ? Value(*value) : Value(); }
Value write(const std::optional<Mode>& value) { return value ? write(*value) : Value(); }

// What becomes of a value that was read.

void asRead(Config&) {}

template <int Config::*field, int least, int most>
void clamped(Config& config) {
  config.*field = std::clamp(config.*field, least, most);
}

void topicCut(Config& config) { config.ntfyTopic = text::firstCharacters(config.ntfyTopic, 64); }

template <std::optional<double> Config::*field>
void positive(Config& config) {
  auto& value = config.*field;
  if (value && !(std::isfinite(*value) && *value > 0)) value.reset();
}

void notAlways(Config& config) {
  if (config.modeBeforeAlways == Mode::on) config.modeBeforeAlways.reset();
}

void knownPeriod(Config& config) {
  const int minutes = config.checkInMinutes;
  if (minutes != 15 && minutes != 30 && minutes != 60) config.checkInMinutes = 0;
}

struct Setting {
  std::string_view key;
  void (*read)(const Value& value, Config& config);
  Value (*write)(const Config& config);  // null: left out of the file
};

template <auto field, void (*afterwards)(Config&) = asRead>
constexpr Setting setting(std::string_view key) {
  return {key,
          [](const Value& value, Config& config) {
            using T = std::remove_reference_t<decltype(config.*field)>;
            if (auto decoded = read<T>(value)) {
              config.*field = std::move(*decoded);
              afterwards(config);
            }
          },
          [](const Config& config) { return write(config.*field); }};
}

constexpr Setting kSettings[] = {
    setting<&Config::mode>("mode"),
    setting<&Config::preset>("preset"),
    setting<&Config::lowPowerWhileClosed>("lowPowerWhileClosed"),
    setting<&Config::sleepWhenDone>("sleepWhenDone"),
    setting<&Config::quietMinutes, clamped<&Config::quietMinutes, 1, 240>>("quietMinutes"),
    setting<&Config::batteryFloor, clamped<&Config::batteryFloor, 0, Config::kMostBatteryFloor>>("batteryFloor"),
    setting<&Config::heatGuard>("heatGuard"),
    setting<&Config::onlyOnPower>("onlyOnPower"),
    setting<&Config::countClaudeApp>("countClaudeApp"),
    setting<&Config::countRequests>("countRequests"),
    setting<&Config::watchedApps>("watchedApps"),
    setting<&Config::appRules>("appRules"),
    setting<&Config::customAgents>("customAgents"),
    setting<&Config::menuBarText>("menuBarText"),
    setting<&Config::notchIsland>("notchIsland"),
    setting<&Config::showInDock>("showInDock"),
    setting<&Config::hotkey>("hotkey"),
    setting<&Config::appearance>("appearance"),
    setting<&Config::notifyDone>("notifyDone"),
    setting<&Config::doneChime>("doneChime"),
    setting<&Config::chimeSound>("chimeSound"),
    setting<&Config::ntfyTopic, topicCut>("ntfyTopic"),
    setting<&Config::lockOnClose>("lockOnClose"),
    setting<&Config::pauseSimulators>("pauseSimulators"),
    setting<&Config::pauseBackgroundAudio>("pauseBackgroundAudio"),
    setting<&Config::screenOffNoLock>("screenOffNoLock"),
    setting<&Config::shutDownSimulators>("shutDownSimulators"),
    setting<&Config::trackOnly>("trackOnly"),
    setting<&Config::liveLidIcon>("liveLidIcon"),
    setting<&Config::alwaysUntil, positive<&Config::alwaysUntil>>("alwaysUntil"),
    setting<&Config::modeBeforeAlways, notAlways>("modeBeforeAlways"),
    setting<&Config::checkInMinutes, knownPeriod>("checkInMinutes"),
    setting<&Config::wakeAt, positive<&Config::wakeAt>>("wakeAt"),
    setting<&Config::wakeForMinutes, clamped<&Config::wakeForMinutes, 5, 1440>>("wakeForMinutes"),
    setting<&Config::slowBuildsWhileClosed>("slowBuildsWhileClosed"),
    setting<&Config::pauseTimeMachine>("pauseTimeMachine"),
};
static_assert(std::size(kSettings) == 36);

}  // namespace

std::optional<Config> Config::decode(std::string_view text) {
  const auto document = json::parseObject(text);
  if (!document) return std::nullopt;
  Config config;
  for (const Setting& setting : kSettings) {
    if (const Value* value = json::member(*document, setting.key)) setting.read(*value, config);
  }
  return config;
}

nlohmann::json Config::toJson() const {
  Value document = Value::object();
  for (const Setting& setting : kSettings) {
    if (Value value = setting.write(*this); !value.is_null()) document[std::string{setting.key}] = std::move(value);
  }
  return document;
}

std::string Config::encoded() const { return json::pretty(toJson()) + '\n'; }

std::optional<std::string> Config::setAsideIfBroken(const StateFiles& state, Clock& clock) {
  const auto text = state.read("config.json");
  if (!text || json::parseObject(*text)) return std::nullopt;
  const std::string name = fmt::format("config.broken-{}.json", static_cast<long long>(unixSeconds(clock.now())));
  // The first copy of a second stands: it is the one that the person hasn't seen replaced.
  if (!state.exists(name)) state.writeDurably(*text, state.path(name));
  return name;
}

std::string Config::path(const StateFiles& state) { return state.path("config.json"); }

}  // namespace tovi
