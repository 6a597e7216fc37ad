#include "platform/simulated/LaptopSwitches.h"

#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

namespace tovi {

namespace {

using Json = nlohmann::ordered_json;

void takeFlag(const Json& object, const char* key, bool& field) {
  if (const auto at = object.find(key); at != object.end() && at->is_boolean()) field = at->get<bool>();
}

void takeModes(const Json& object, const char* source, LaptopSwitches::Modes& field) {
  const auto at = object.find(source);
  if (at == object.end() || !at->is_object()) return;
  LaptopSwitches::Modes modes;
  for (const auto& [key, value] : at->items()) {
    if (value.is_number_integer() && value >= 0 && value <= std::numeric_limits<int>::max())
      modes[key] = value.get<int>();
  }
  field = std::move(modes);
}

std::optional<std::uint32_t> displayId(const std::string& text) {
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return id;
}

}  // namespace

DisplaySwitch LaptopSwitches::display(std::uint32_t id) const {
  const auto at = displays.find(id);
  return at == displays.end() ? DisplaySwitch{} : at->second;
}

std::optional<LaptopSwitches> LaptopSwitches::parse(std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) return std::nullopt;
  LaptopSwitches switches;
  takeFlag(json, "SleepDisabled", switches.sleepDisabled);
  takeFlag(json, "asleep", switches.asleep);
  if (const auto at = json.find("powerMode"); at != json.end() && at->is_object()) {
    takeModes(*at, "battery", switches.batteryMode);
    takeModes(*at, "ac", switches.acMode);
  }
  if (const auto at = json.find("AutoBackup"); at != json.end() && at->is_number_integer()) {
    switches.autoBackup = *at != 0;
  }
  if (const auto at = json.find("displays"); at != json.end() && at->is_object()) {
    for (const auto& [key, value] : at->items()) {
      const auto id = displayId(key);
      if (!id || !value.is_object()) continue;
      DisplaySwitch& display = switches.displays[*id];
      takeFlag(value, "enabled", display.enabled);
      const auto brightness = value.find("brightness");
      if (brightness != value.end() && brightness->is_number() && *brightness >= 0.0 && *brightness <= 1.0) {
        display.brightness = brightness->get<double>();
      }
    }
  }
  takeFlag(json, "displayAssertion", switches.displayAssertion);
  takeFlag(json, "displayAsleep", switches.displayAsleep);
  takeFlag(json, "watchdogLoaded", switches.watchdogLoaded);
  if (const auto at = json.find("nextWake"); at != json.end() && at->is_number()) switches.nextWake = at->get<double>();
  return switches;
}

std::string LaptopSwitches::toJson() const {
  Json json;
  json["SleepDisabled"] = sleepDisabled;
  json["asleep"] = asleep;
  json["powerMode"] = {{"battery", Json(batteryMode)}, {"ac", Json(acMode)}};
  json["AutoBackup"] = autoBackup ? 1 : 0;
  json["displays"] = Json::object();
  for (const auto& [id, display] : displays) {
    json["displays"][std::to_string(id)] = {{"enabled", display.enabled}, {"brightness", display.brightness}};
  }
  json["displayAssertion"] = displayAssertion;
  json["displayAsleep"] = displayAsleep;
  json["watchdogLoaded"] = watchdogLoaded;
  json["nextWake"] = nextWake ? Json(*nextWake) : Json(nullptr);
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tovi
