#include "platform/simulated/LaptopPower.h"

#include "platform/simulated/LaptopStore.h"

namespace tovi {

std::optional<bool> LaptopPower::clamshellClosed() {
  const LaptopLid lid = store_.report()->lid;
  if (lid == LaptopLid::none) return std::nullopt;
  return lid == LaptopLid::closed;
}

std::optional<bool> LaptopPower::sleepDisabled() { return store_.switches()->sleepDisabled; }

std::optional<BatteryProperties> LaptopPower::battery() {
  auto battery = store_.report()->battery;
  if (battery && !battery->powerTelemetry) battery->powerTelemetry = store_.telemetry();
  return battery;
}

ThermalState LaptopPower::thermalState() { return store_.report()->thermal; }

Registration LaptopPower::onChange(std::function<void()> call) {
  return store_.observe(LaptopEvent::change, std::move(call));
}

Registration LaptopPower::onThermalChange(std::function<void()> call) {
  return store_.observe(LaptopEvent::thermal, std::move(call));
}

Registration LaptopPower::onWillSleep(std::function<void()> call) {
  return store_.observe(LaptopEvent::willSleep, std::move(call));
}

Registration LaptopPower::onPoweredOn(std::function<void()> call) {
  return store_.observe(LaptopEvent::poweredOn, std::move(call));
}

Registration LaptopPower::onDidWake(std::function<void()> call) {
  return store_.observe(LaptopEvent::didWake, std::move(call));
}

}  // namespace tovi
