// What the simulated laptop reports of itself: the content of laptop.json, which a person or a test writes and
// the laptop only reads (but for the rule that set-up installs).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Assertions.h"
#include "platform/Displays.h"
#include "platform/PowerRegistry.h"
#include "platform/Workspace.h"

namespace tovi {

enum class LaptopLid { open, closed, none };

// What the person answers to the one-time password dialog.
enum class LaptopElevation { grant, cancel, fail };

// Counters of things that happen to the laptop; one that has grown has happened.
struct LaptopCounters {
  std::int64_t willSleep = 0;
  std::int64_t poweredOn = 0;
  std::int64_t didWake = 0;

  friend bool operator==(const LaptopCounters&, const LaptopCounters&) = default;
};

struct LaptopReport {
  LaptopLid lid = LaptopLid::open;
  ThermalState thermal = ThermalState::nominal;
  std::optional<BatteryProperties> battery = ordinaryBattery();  // absent: the laptop has none
  std::vector<Display> displays = {Display{1, true}};
  bool locked = false;
  std::optional<int> gracePeriod;  // seconds
  bool privileged = true;          // the passwordless rule is in place
  LaptopElevation elevation = LaptopElevation::grant;
  std::string applicationsFolder = "/Applications/";
  std::vector<std::string> refuse;               // beginnings of the commands that fail
  std::vector<RunningApplication> applications;  // one with pid 0 describes a bundle that needn't run
  std::vector<AssertionRecord> assertions;
  LaptopCounters events;
  double wattsPerCore = 4.0;
  double telemetrySeconds = 30;  // above 0

  // 80 %, discharging at 6 W, with nine hours and twenty minutes left of 70 Wh.
  static BatteryProperties ordinaryBattery();

  // Absent if the text isn't a JSON object. A key that is missing, of another type or out of range has its default.
  static std::optional<LaptopReport> parse(std::string_view text);

  // Every key that has a value, indented for people; parse() gives the same report back.
  std::string toJson() const;

  // `text` with "privileged" set and all else kept, unknown keys included; the whole of `fallback` if it isn't a
  // JSON object.
  static std::string withPrivileged(std::string_view text, bool privileged, const LaptopReport& fallback);

  // Whether this laptop refuses a command. `words` is the tool's name and its arguments, joined by blanks.
  bool refuses(std::string_view words) const;
};

}  // namespace tovi
