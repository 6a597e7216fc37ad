// The modelled power controller: adds up what the laptop draws and publishes a reading of it every so often, as
// the counters of a real one do. It has no timer: each time it is asked it accounts for the span since the last.
#pragma once

#include <cstdint>

#include "platform/PowerRegistry.h"
#include "platform/simulated/LaptopReport.h"
#include "platform/simulated/LaptopSwitches.h"

namespace tovi {

class LaptopTelemetry {
 public:
  // Watts of a thin laptop that idles with its screen off, of a panel that is lit at zero brightness, and of what
  // full brightness adds to that; measured on no particular machine.
  static constexpr double kBaseWatts = 2.0;
  static constexpr double kPanelWatts = 0.6;
  static constexpr double kBrightnessWatts = 3.0;
  // What Low Power Mode takes off the base load and the processes.
  static constexpr double kLowPowerShare = 0.15;

  // Watts of everything but the processes, and the factor by which the processes' energy counts.
  static double quietWatts(const LaptopReport& report, const LaptopSwitches& switches);
  static double processFactor(const LaptopReport& report, const LaptopSwitches& switches);

  // A clock that never steps, and the energy that all processes have used so far.
  struct Load {
    double seconds = 0;
    double processJoules = 0;
  };

  bool started() const { return started_; }

  // Accounts for the span up to `now`, throughout which the laptop was as `report` and `switches` say. Call it before
  // they change. Readings fall on whole multiples of the period; the first call publishes a first one at once.
  void advance(const Load& now, const LaptopReport& report, const LaptopSwitches& switches);

  BatteryProperties::Telemetry published() const;

 private:
  bool started_ = false;
  Load last_;
  double periodStart_ = 0;    // of the reading in the making
  double periodJoules_ = 0;   // gathered for it so far
  std::int64_t reading_ = 0;  // milliwatts
  std::int64_t sum_ = 0;
  std::int64_t count_ = 0;

  void publish(double watts);
};

}  // namespace tovi
