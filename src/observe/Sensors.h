// The lid, the battery and the whole machine's draw: which source is trusted, and what counts as closed.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Types.h"

namespace tovi {

struct Machine;

struct BatteryReading {
  int percent = 0;   // 0 to 100, cut
  double watts = 0;  // discharge; 0 when not discharging
  bool onAC = false;
  bool charging = false;
  std::optional<int> minutesLeft;  // the system's estimate while on battery

  friend bool operator==(const BatteryReading&, const BatteryReading&) = default;

  // A draw that means something: not charging and above 0.3 W.
  std::optional<double> usableWatts() const { return !charging && watts > 0.3 ? std::optional{watts} : std::nullopt; }
};

struct PowerSample {
  std::optional<double> watts;              // instantaneous whole-system power
  std::optional<std::int64_t> accumulated;  // running sum of milliwatt readings
  std::optional<std::int64_t> count;        // how many readings are in it
  Date at;

  friend bool operator==(const PowerSample&, const PowerSample&) = default;
};

namespace Registry {
bool hasLid(const Machine& machine);
// Shut, and no external screen in use: with one the machine counts as a desktop.
bool lidClosed(const Machine& machine);
std::optional<bool> sleepDisabled(const Machine& machine);
}  // namespace Registry

namespace Battery {
std::optional<BatteryReading> read(const Machine& machine);
}

namespace PowerSensor {
std::optional<PowerSample> sample(const Machine& machine);
}

// Mean watts between two samples by their counters; absent unless both have both counters, the count grew and
// the sum didn't fall.
std::optional<double> meanWatts(const PowerSample& earlier, const PowerSample& later);

}  // namespace tovi
