#include "platform/simulated/LaptopTelemetry.h"

#include <algorithm>
#include <cmath>

namespace tovi {

namespace {

constexpr double kShortestPeriod = 0.1;  // seconds; below that there are more readings than anybody could use

bool lowPower(const LaptopReport& report, const LaptopSwitches& switches) {
  const bool onCharger = report.battery && report.battery->externalConnected.value_or(false);
  const LaptopSwitches::Modes& modes = onCharger ? switches.acMode : switches.batteryMode;
  return std::any_of(modes.begin(), modes.end(), [](const auto& mode) { return mode.second == 1; });
}

}  // namespace

double LaptopTelemetry::processFactor(const LaptopReport& report, const LaptopSwitches& switches) {
  return lowPower(report, switches) ? 1 - kLowPowerShare : 1;
}

double LaptopTelemetry::quietWatts(const LaptopReport& report, const LaptopSwitches& switches) {
  double watts = kBaseWatts * processFactor(report, switches);
  if (switches.displayAsleep || switches.asleep) return watts;
  for (const Display& display : report.displays) {
    const DisplaySwitch panel = switches.display(display.id);
    if (display.builtIn && panel.enabled) watts += kPanelWatts + kBrightnessWatts * panel.brightness;
  }
  return watts;
}

void LaptopTelemetry::publish(double watts) {
  reading_ = std::llround(watts * 1000);
  sum_ += reading_;
  ++count_;
}

void LaptopTelemetry::advance(const Load& now, const LaptopReport& report, const LaptopSwitches& switches) {
  const double period = std::max(report.telemetrySeconds, kShortestPeriod);
  const double quiet = quietWatts(report, switches);
  const double factor = processFactor(report, switches);
  if (!started_) {
    // Nothing was accounted for before, so the first reading takes the processes at their mean since boot. Counting
    // from boot keeps the counts of several processes in step.
    started_ = true;
    const double sinceBoot = std::max(now.seconds, 1.0);
    const double watts = quiet + factor * now.processJoules / sinceBoot;
    periodStart_ = std::floor(now.seconds / period) * period;
    periodJoules_ = watts * (now.seconds - periodStart_);
    publish(watts);
    count_ = std::max<std::int64_t>(1, std::llround(periodStart_ / period));
    sum_ = reading_ * count_;
    last_ = now;
    return;
  }
  const double span = now.seconds - last_.seconds;
  if (span <= 0) return;
  const double watts = quiet + factor * std::max(0.0, now.processJoules - last_.processJoules) / span;
  double from = last_.seconds;
  for (double end = periodStart_ + period; end <= now.seconds; end = periodStart_ + period) {
    // A period made shorter meanwhile may lie wholly behind: its reading is what was gathered.
    periodJoules_ += watts * std::max(0.0, end - from);
    from = std::max(from, end);
    publish(periodJoules_ / std::max(period, from - periodStart_));
    periodStart_ = from;
    periodJoules_ = 0;
  }
  periodJoules_ += watts * (now.seconds - from);
  last_ = now;
}

BatteryProperties::Telemetry LaptopTelemetry::published() const {
  return {static_cast<double>(reading_), sum_, count_};
}

}  // namespace tovi
