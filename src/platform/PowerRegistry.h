// The power root domain and the battery as the system reports them: lid, sleep switch, battery, heat, and
// the notifications of their changes and of the system's sleep.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "platform/Types.h"

namespace tovi {

enum class ThermalState { nominal = 0, fair = 1, serious = 2, critical = 3 };

// The battery's registry entry. A value that is missing or of another type is absent.
struct BatteryProperties {
  struct Telemetry {
    std::optional<double> systemLoad;                        // "SystemLoad", milliwatts
    std::optional<std::int64_t> accumulatedSystemLoad;       // running sum of milliwatt readings
    std::optional<std::int64_t> systemLoadAccumulatorCount;  // how many readings are in that sum
  };
  std::optional<std::int64_t> currentCapacity;  // same unit as maxCapacity
  std::optional<std::int64_t> maxCapacity;
  std::optional<std::int64_t> instantAmperage;  // mA, negative while discharging
  std::optional<std::int64_t> amperage;         // mA, same sign
  std::optional<std::int64_t> voltage;          // mV
  std::optional<bool> externalConnected;
  std::optional<bool> isCharging;
  std::optional<std::int64_t> timeRemaining;  // minutes
  std::optional<Telemetry> powerTelemetry;
};

class PowerRegistry {
 public:
  virtual ~PowerRegistry() = default;

  virtual std::optional<bool> clamshellClosed() = 0;  // absent on a machine without a lid
  virtual std::optional<bool> sleepDisabled() = 0;    // the sleep switch as it stands, whoever turned it
  virtual std::optional<BatteryProperties> battery() = 0;
  virtual ThermalState thermalState() = 0;

  // Any message of the root domain, the lid's included. An empty registration: no such notification here.
  virtual Registration onChange(std::function<void()> call) = 0;
  virtual Registration onThermalChange(std::function<void()> call) = 0;

  virtual Registration onWillSleep(std::function<void()> call) = 0;
  virtual Registration onPoweredOn(std::function<void()> call) = 0;  // dark wakes too
  virtual Registration onDidWake(std::function<void()> call) = 0;    // full wakes only
};

}  // namespace tovi
