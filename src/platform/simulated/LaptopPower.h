// The simulated laptop's lid, battery and heat, and the news of its sleep and wake.
#pragma once

#include "platform/PowerRegistry.h"

namespace tovi {

class LaptopStore;

class LaptopPower final : public PowerRegistry {
 public:
  explicit LaptopPower(LaptopStore& store) : store_(store) {}

  std::optional<bool> clamshellClosed() override;
  std::optional<bool> sleepDisabled() override;
  std::optional<BatteryProperties> battery() override;  // with the modelled telemetry unless the report has its own
  ThermalState thermalState() override;

  Registration onChange(std::function<void()> call) override;
  Registration onThermalChange(std::function<void()> call) override;
  Registration onWillSleep(std::function<void()> call) override;
  Registration onPoweredOn(std::function<void()> call) override;
  Registration onDidWake(std::function<void()> call) override;

 private:
  LaptopStore& store_;
};

}  // namespace tovi
