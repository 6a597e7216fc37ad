// From the battery's readings to the engine's figures: what the whole machine draws, what it usually draws, and
// how much the battery holds.

#include <cmath>
#include <string>

#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "platform/Defaults.h"

namespace tovi {

namespace {

constexpr double kLeastWatts = 0.3;   // below this a figure says nothing
constexpr double kClosedShare = 0.1;  // weight of a new figure in the usual draw
constexpr double kOpenShare = 0.15;
constexpr double kCapacityShare = 0.2;
constexpr int kTicksBetweenWrites = 30;  // of learned figures to the defaults
constexpr double kLeastNews = 0.02;      // share of the figure that stands there; less isn't worth waking the disk for

double smoothed(const std::optional<double>& usual, double figure, double share) {
  return usual ? share * figure + (1 - share) * *usual : figure;
}

void keep(Defaults& defaults, const std::string& key, double figure) {
  const auto standing = defaults.number(key);
  if (!standing || std::abs(figure - *standing) >= kLeastNews * std::abs(*standing)) defaults.set(key, figure);
}

}  // namespace

void Engine::readBattery() {
  const auto reading = Battery::read(machine_);
  if (!reading) return;

  // The system turns its sleep switch back on by itself when the charger comes or goes.
  if (lastOnAC && *lastOnAC != reading->onAC && holding && !previewOnly_ &&
      (!switchSleepOff() || Registry::sleepDisabled(machine_) != true)) {
    raiseWarning(warnings::kPowerChange);
  }
  lastOnAC = reading->onAC;
  battery = reading;
  if (reading->charging) floorOverride = false;

  if (const auto sample = PowerSensor::sample(machine_)) {
    const auto mean = lastPowerSample ? meanWatts(*lastPowerSample, *sample) : std::nullopt;
    systemWatts = mean ? mean : sample->watts;
    lastPowerSample = sample;
  } else {
    systemWatts = reading->usableWatts();
  }

  const bool write = ticks % kTicksBetweenWrites == 0 && !previewOnly_;
  if (const auto& watts = systemWatts.get(); watts && *watts > kLeastWatts) {
    if (!lidClosed) {
      openDraw = smoothed(openDraw, *watts, kOpenShare);
      if (write) keep(machine_.defaults, "openDraw", *openDraw.get());
    } else if (holding && !powerTestRunning) {
      closedDraw = smoothed(closedDraw, *watts, kClosedShare);
      if (write) keep(machine_.defaults, "closedDraw", *closedDraw.get());
    }
  }

  if (reading->minutesLeft && reading->watts > 1.0 && reading->percent >= 6) {
    const double estimate = reading->watts * *reading->minutesLeft / 60 / (reading->percent / 100.0);
    if (estimate > 20.0 && estimate < 140.0) {
      fullWh = kCapacityShare * estimate + (1 - kCapacityShare) * fullWh;
      if (write) keep(machine_.defaults, "fullWh", fullWh.get());
    }
  }
}

}  // namespace tovi
