// What has been switched on the simulated laptop: the content of switches.json, written by the laptop alone.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tovi {

struct DisplaySwitch {
  bool enabled = true;
  double brightness = 0.8;  // 0 to 1

  friend bool operator==(const DisplaySwitch&, const DisplaySwitch&) = default;
};

struct LaptopSwitches {
  // The power mode by its name at the tool, as in "lowpowermode" or "powermode"; a laptop knows one of them.
  using Modes = std::map<std::string, int>;

  bool sleepDisabled = false;
  bool asleep = false;
  Modes batteryMode = {{"lowpowermode", 0}};
  Modes acMode = {{"lowpowermode", 0}};
  bool autoBackup = true;
  std::map<std::uint32_t, DisplaySwitch> displays;  // one that isn't here stands as it was delivered
  bool displayAssertion = false;                    // somebody keeps the screen from sleeping
  bool displayAsleep = false;
  bool watchdogLoaded = false;
  std::optional<double> nextWake;  // seconds since 1970

  // Sleeps begun since the last one was told: a laptop that has slept and was opened can be sent to sleep again
  // without a wake having been reported. Not part of the file.
  int sleeps = 0;

  friend bool operator==(const LaptopSwitches&, const LaptopSwitches&) = default;

  DisplaySwitch display(std::uint32_t id) const;

  // Absent if the text isn't a JSON object; a missing or wrong-typed key has its default.
  static std::optional<LaptopSwitches> parse(std::string_view text);
  std::string toJson() const;  // every key
};

}  // namespace tovi
