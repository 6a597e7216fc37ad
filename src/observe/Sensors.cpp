#include "observe/Sensors.h"

#include <algorithm>

#include "core/Guard.h"
#include "observe/DisplayPower.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/PowerRegistry.h"

namespace tovi {

namespace {

// Percentages, cut; in doubles beyond, because a broken gauge may report capacities that overflow an integer product.
int percentOf(std::int64_t current, std::int64_t maximum) {
  constexpr std::int64_t kSafe = INT64_MAX / 100;
  if (current <= kSafe && current >= -kSafe) {
    return static_cast<int>(std::clamp<std::int64_t>(current * 100 / maximum, 0, 100));
  }
  return static_cast<int>(std::clamp(static_cast<double>(current) / static_cast<double>(maximum) * 100, 0.0, 100.0));
}

std::int64_t current(const BatteryProperties& battery) {
  return battery.instantAmperage.value_or(battery.amperage.value_or(0));  // mA
}

double discharge(std::int64_t millivolts, std::int64_t milliamperes) {
  return static_cast<double>(millivolts) * -static_cast<double>(milliamperes) / 1e6;
}

}  // namespace

bool Registry::hasLid(const Machine& machine) { return machine.power.clamshellClosed().has_value(); }

bool Registry::lidClosed(const Machine& machine) {
  return machine.power.clamshellClosed().value_or(false) && !externalDisplayConnected(machine);
}

std::optional<bool> Registry::sleepDisabled(const Machine& machine) { return machine.power.sleepDisabled(); }

std::optional<BatteryReading> Battery::read(const Machine& machine) {
  const auto battery = machine.power.battery();
  if (!battery || !battery->currentCapacity || !battery->maxCapacity || *battery->maxCapacity < 1) return std::nullopt;
  BatteryReading reading;
  reading.percent = percentOf(*battery->currentCapacity, *battery->maxCapacity);
  if (current(*battery) < 0) reading.watts = discharge(battery->voltage.value_or(0), current(*battery));
  reading.onAC = battery->externalConnected.value_or(false);
  reading.charging = battery->isCharging.value_or(false);
  // The system says 0 while it makes up its mind and 65535 for "no idea": only a plausible estimate counts.
  const auto minutes = battery->timeRemaining;
  if (!reading.onAC && minutes && *minutes >= 1 && *minutes <= 5999) reading.minutesLeft = static_cast<int>(*minutes);
  return reading;
}

std::optional<PowerSample> PowerSensor::sample(const Machine& machine) {
  const auto battery = machine.power.battery();
  if (!battery) return std::nullopt;
  PowerSample sample;
  sample.at = machine.clock.now();
  if (const auto& telemetry = battery->powerTelemetry) {
    sample.accumulated = telemetry->accumulatedSystemLoad;
    sample.count = telemetry->systemLoadAccumulatorCount;
    if (telemetry->systemLoad.value_or(0) > 0) {
      sample.watts = *telemetry->systemLoad / 1000;
      return sample;
    }
    if (sample.accumulated && sample.count) return sample;
  }
  if (battery->voltage.value_or(0) < 1 || current(*battery) >= 0) return std::nullopt;
  return PowerSample{discharge(*battery->voltage, current(*battery)), std::nullopt, std::nullopt, sample.at};
}

std::optional<double> meanWatts(const PowerSample& earlier, const PowerSample& later) {
  if (!earlier.accumulated || !earlier.count || !later.accumulated || !later.count) return std::nullopt;
  const bool backwards = *earlier.count >= *later.count || *earlier.accumulated > *later.accumulated;
  if (backwards && !without(Guard::counters)) return std::nullopt;
  // Both differences are positive; unsigned, since they may exceed the signed range.
  const auto difference = [](std::int64_t from, std::int64_t to) {
    return static_cast<double>(static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from));
  };
  return difference(*earlier.accumulated, *later.accumulated) / difference(*earlier.count, *later.count) / 1000;
}

}  // namespace tovi
