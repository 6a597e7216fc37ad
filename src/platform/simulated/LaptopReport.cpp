#include "platform/simulated/LaptopReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/JsonDepth.h"

namespace tovi {

namespace {

using Json = nlohmann::ordered_json;

// Readers of one value: false, and `field` left alone, when the value has another type or doesn't fit.

bool take(const Json& value, bool& field) {
  if (!value.is_boolean()) return false;
  field = value.get<bool>();
  return true;
}

bool take(const Json& value, std::string& field) {
  if (!value.is_string()) return false;
  field = value.get<std::string>();
  return true;
}

bool take(const Json& value, double& field) {
  if (!value.is_number()) return false;
  field = value.get<double>();
  return true;
}

template <std::integral Integer>
bool take(const Json& value, Integer& field) {
  if (value.is_number_float()) {  // 14.0 is 14
    const double number = value.get<double>();
    if (!(std::abs(number) < 9e15) || number != std::floor(number)) return false;
    const auto whole = static_cast<std::int64_t>(number);
    if (std::in_range<Integer>(whole)) field = static_cast<Integer>(whole);
    return std::in_range<Integer>(whole);
  }
  if (!value.is_number_integer()) return false;
  const bool fits = value.is_number_unsigned() ? std::in_range<Integer>(value.get<std::uint64_t>())
                                               : std::in_range<Integer>(value.get<std::int64_t>());
  if (fits) field = value.get<Integer>();
  return fits;
}

template <class Value>
bool take(const Json& value, std::optional<Value>& field) {
  Value read{};
  if (!take(value, read)) return false;
  field = std::move(read);
  return true;
}

template <class Field>
void takeKey(const Json& object, const char* key, Field& field) {
  if (const auto at = object.find(key); at != object.end()) take(*at, field);
}

std::vector<std::string> strings(const Json& value) {
  std::vector<std::string> found;
  if (!value.is_array()) return found;
  for (const Json& one : value) {
    if (one.is_string()) found.push_back(one.get<std::string>());
  }
  return found;
}

template <class Enum, std::size_t N>
struct Words {
  std::array<std::pair<const char*, Enum>, N> rows;

  const char* of(Enum wanted) const {
    for (const auto& [word, value] : rows) {
      if (value == wanted) return word;
    }
    return "";
  }
  void takeKey(const Json& object, const char* key, Enum& field) const {
    std::string read;
    tovi::takeKey(object, key, read);
    for (const auto& [word, value] : rows) {
      if (read == word) field = value;
    }
  }
};

constexpr Words<LaptopLid, 3> kLids{
    {{{"open", LaptopLid::open}, {"closed", LaptopLid::closed}, {"none", LaptopLid::none}}}};
constexpr Words<LaptopElevation, 3> kElevations{
    {{{"grant", LaptopElevation::grant}, {"cancel", LaptopElevation::cancel}, {"fail", LaptopElevation::fail}}}};

BatteryProperties batteryFrom(const Json& object) {
  BatteryProperties battery;
  takeKey(object, "CurrentCapacity", battery.currentCapacity);
  takeKey(object, "MaxCapacity", battery.maxCapacity);
  takeKey(object, "InstantAmperage", battery.instantAmperage);
  takeKey(object, "Amperage", battery.amperage);
  takeKey(object, "Voltage", battery.voltage);
  takeKey(object, "ExternalConnected", battery.externalConnected);
  takeKey(object, "IsCharging", battery.isCharging);
  takeKey(object, "TimeRemaining", battery.timeRemaining);
  if (const auto at = object.find("PowerTelemetryData"); at != object.end() && at->is_object()) {
    BatteryProperties::Telemetry& telemetry = battery.powerTelemetry.emplace();
    takeKey(*at, "SystemLoad", telemetry.systemLoad);
    takeKey(*at, "AccumulatedSystemLoad", telemetry.accumulatedSystemLoad);
    takeKey(*at, "SystemLoadAccumulatorCount", telemetry.systemLoadAccumulatorCount);
  }
  return battery;
}

template <class Value>
void put(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

Json jsonFrom(const BatteryProperties& battery) {
  Json object = Json::object();
  put(object, "CurrentCapacity", battery.currentCapacity);
  put(object, "MaxCapacity", battery.maxCapacity);
  put(object, "InstantAmperage", battery.instantAmperage);
  put(object, "Amperage", battery.amperage);
  put(object, "Voltage", battery.voltage);
  put(object, "ExternalConnected", battery.externalConnected);
  put(object, "IsCharging", battery.isCharging);
  put(object, "TimeRemaining", battery.timeRemaining);
  if (battery.powerTelemetry) {
    Json telemetry = Json::object();
    put(telemetry, "SystemLoad", battery.powerTelemetry->systemLoad);
    put(telemetry, "AccumulatedSystemLoad", battery.powerTelemetry->accumulatedSystemLoad);
    put(telemetry, "SystemLoadAccumulatorCount", battery.powerTelemetry->systemLoadAccumulatorCount);
    object["PowerTelemetryData"] = std::move(telemetry);
  }
  return object;
}

// Without a pid there is nobody who could hold it.
std::optional<AssertionRecord> assertionFrom(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  AssertionRecord record;
  takeKey(object, "pid", record.pid);
  if (record.pid < 1) return std::nullopt;
  takeKey(object, "Process Name", record.processName);
  takeKey(object, "AssertionTrueType", record.trueType);
  takeKey(object, "AssertType", record.type);
  takeKey(object, "AssertName", record.name);
  takeKey(object, "AssertionOnBehalfOfPID", record.onBehalfOf);
  std::optional<double> since;
  takeKey(object, "AssertStartWhen", since);
  if (since) record.startedAt = dateFromUnix(*since);
  if (const auto at = object.find("ResourcesUsed"); at != object.end()) record.resourcesUsed = strings(*at);
  return record;
}

Json jsonFrom(const AssertionRecord& record) {
  Json object{{"pid", record.pid}};
  put(object, "Process Name", record.processName);
  put(object, "AssertionTrueType", record.trueType);
  put(object, "AssertType", record.type);
  put(object, "AssertName", record.name);
  if (record.startedAt) object["AssertStartWhen"] = unixSeconds(*record.startedAt);
  put(object, "AssertionOnBehalfOfPID", record.onBehalfOf);
  if (!record.resourcesUsed.empty()) object["ResourcesUsed"] = record.resourcesUsed;
  return object;
}

std::optional<RunningApplication> applicationFrom(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  RunningApplication application;
  application.regular = true;
  takeKey(object, "name", application.name);
  takeKey(object, "bundleIdentifier", application.bundleIdentifier);
  takeKey(object, "path", application.path);
  takeKey(object, "pid", application.pid);
  takeKey(object, "regular", application.regular);
  if (application.path && application.path->size() > 1 && application.path->ends_with('/')) {
    application.path->pop_back();
  }
  return application;
}

Json jsonFrom(const RunningApplication& application) {
  Json object{{"name", application.name}};
  put(object, "bundleIdentifier", application.bundleIdentifier);
  put(object, "path", application.path);
  object["pid"] = application.pid;
  object["regular"] = application.regular;
  return object;
}

std::optional<Display> displayFrom(const Json& object) {
  if (!object.is_object()) return std::nullopt;
  std::optional<std::uint32_t> id;
  takeKey(object, "id", id);
  if (!id) return std::nullopt;
  Display display{*id, false};
  takeKey(object, "builtin", display.builtIn);
  return display;
}

Json jsonFrom(const Display& display) { return Json{{"id", display.id}, {"builtin", display.builtIn}}; }

// A list, each element read by `read`; an element that it can't read is left out.
template <class Element, class Read>
void takeList(const Json& object, const char* key, std::vector<Element>& field, Read read) {
  const auto at = object.find(key);
  if (at == object.end() || !at->is_array()) return;
  field.clear();
  for (const Json& one : *at) {
    if (auto element = read(one)) field.push_back(std::move(*element));
  }
}

template <class Element>
Json listOf(const std::vector<Element>& elements) {
  Json list = Json::array();
  for (const Element& one : elements) list.push_back(jsonFrom(one));
  return list;
}

// No object if the text isn't JSON.
Json jsonOf(std::string_view text) { return isTooDeep(text) ? Json() : Json::parse(text, nullptr, false); }

std::string textOf(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace

BatteryProperties LaptopReport::ordinaryBattery() {
  BatteryProperties battery;
  battery.currentCapacity = 80;
  battery.maxCapacity = 100;
  battery.instantAmperage = -500;
  battery.voltage = 12000;
  battery.externalConnected = false;
  battery.isCharging = false;
  battery.timeRemaining = 560;
  return battery;
}

std::optional<LaptopReport> LaptopReport::parse(std::string_view text) {
  const Json json = jsonOf(text);
  if (!json.is_object()) return std::nullopt;
  LaptopReport report;
  kLids.takeKey(json, "lid", report.lid);
  std::int64_t thermal = 0;
  takeKey(json, "thermal", thermal);
  if (thermal >= 0 && thermal <= 3) report.thermal = static_cast<ThermalState>(thermal);
  if (const auto at = json.find("battery"); at != json.end()) {
    if (at->is_null()) report.battery.reset();
    if (at->is_object()) report.battery = batteryFrom(*at);
  }
  takeList(json, "displays", report.displays, displayFrom);
  takeKey(json, "locked", report.locked);
  takeKey(json, "gracePeriod", report.gracePeriod);
  takeKey(json, "privileged", report.privileged);
  kElevations.takeKey(json, "elevation", report.elevation);
  takeKey(json, "applicationsFolder", report.applicationsFolder);
  if (!report.applicationsFolder.ends_with('/')) report.applicationsFolder += '/';
  if (const auto at = json.find("refuse"); at != json.end()) report.refuse = strings(*at);
  takeList(json, "applications", report.applications, applicationFrom);
  takeList(json, "assertions", report.assertions, assertionFrom);
  if (const auto at = json.find("events"); at != json.end() && at->is_object()) {
    takeKey(*at, "willSleep", report.events.willSleep);
    takeKey(*at, "poweredOn", report.events.poweredOn);
    takeKey(*at, "didWake", report.events.didWake);
  }
  double watts = -1, seconds = -1;
  takeKey(json, "wattsPerCore", watts);
  takeKey(json, "telemetrySeconds", seconds);
  constexpr double kMostWatts = 1000;  // no core draws that
  if (watts >= 0 && watts <= kMostWatts) report.wattsPerCore = watts;
  if (seconds > 0) report.telemetrySeconds = seconds;
  return report;
}

std::string LaptopReport::toJson() const {
  Json json;
  json["lid"] = kLids.of(lid);
  json["thermal"] = static_cast<int>(thermal);
  json["battery"] = battery ? jsonFrom(*battery) : Json(nullptr);
  json["displays"] = listOf(displays);
  json["locked"] = locked;
  put(json, "gracePeriod", gracePeriod);
  json["privileged"] = privileged;
  json["elevation"] = kElevations.of(elevation);
  json["applicationsFolder"] = applicationsFolder;
  json["refuse"] = refuse;
  json["applications"] = listOf(applications);
  json["assertions"] = listOf(assertions);
  json["events"] = {{"willSleep", events.willSleep}, {"poweredOn", events.poweredOn}, {"didWake", events.didWake}};
  json["wattsPerCore"] = wattsPerCore;
  json["telemetrySeconds"] = telemetrySeconds;
  return textOf(json);
}

std::string LaptopReport::withPrivileged(std::string_view text, bool privileged, const LaptopReport& fallback) {
  Json json = jsonOf(text);
  if (!json.is_object()) {
    LaptopReport whole = fallback;
    whole.privileged = privileged;
    return whole.toJson();
  }
  json["privileged"] = privileged;
  return textOf(json);
}

bool LaptopReport::refuses(std::string_view words) const {
  return std::any_of(refuse.begin(), refuse.end(),
                     [&](const std::string& beginning) { return words.starts_with(beginning); });
}

}  // namespace tovi
