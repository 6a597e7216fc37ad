#include "engine/Estimates.h"

#include <algorithm>
#include <cmath>

#include "engine/AwakeDecision.h"
#include "engine/ReportTexts.h"

namespace tovi::reports {

namespace {

constexpr double kMachineWatts = 1.6;  // the machine itself, without any application
constexpr double kSlowedShare = 0.25;  // of its draw that a slowed application keeps
constexpr double kLeastDraw = 0.1;     // watts; below that no time left can be told
constexpr double kLeastDischarge = 0.3;

}  // namespace

bool drains(const BatteryReading& battery) {
  return battery.watts > kLeastDischarge && !(battery.charging && battery.onAC);
}

std::int64_t wholeNumber(double value) {
  constexpr double kMost = 1e15;
  if (!(std::abs(value) < kMost)) return value > 0 ? static_cast<std::int64_t>(kMost) : 0;
  return static_cast<std::int64_t>(value);
}

std::optional<Date> onUntil(const Config& config) {
  if (config.mode != Mode::on || !config.alwaysUntil) return std::nullopt;
  return dateFromUnix(*config.alwaysUntil);
}

double alwaysLeft(const ReportReadings& readings) {
  const auto until = onUntil(readings.config);
  return until ? std::max(secondsBetween(readings.now, *until), 0.0) : 0;
}

std::optional<double> presentWatts(const ReportReadings& readings) {
  if (readings.systemWatts) return readings.systemWatts;
  return readings.battery ? readings.battery->usableWatts() : std::nullopt;
}

std::optional<double> openWatts(const ReportReadings& readings) {
  const auto present = readings.lidClosed ? std::nullopt : presentWatts(readings);
  return present ? present : readings.openDraw;
}

double closedEstimate(const ReportReadings& readings) {
  const auto present = presentWatts(readings);
  // Once the lid is shut, the present is the best guide.
  if (readings.lidClosed && readings.holding && present) return *present;
  const double usual = readings.closedDraw.value_or(kMachineWatts + readings.appWattsClosed);
  return !readings.lidClosed && present ? std::min(usual, *present) : usual;
}

double shareKept(AppRule rule) {
  switch (rule) {
    case AppRule::leave:
      return 1;
    case AppRule::slow:
      return kSlowedShare;
    case AppRule::pause:
      break;
  }
  return 0;
}

std::optional<double> hoursLeft(const ReportReadings& readings, std::optional<double> watts) {
  if (!readings.battery || !watts || !(*watts > kLeastDraw)) return std::nullopt;
  const double share = std::max(readings.battery->percent - readings.config.batteryFloor, 0) / 100.0;
  const double hours = share * readings.fullWh / *watts;
  return std::isfinite(hours) ? std::optional{hours} : std::nullopt;
}

std::optional<double> sleepsIn(const AgentSession& session, const Config& config, Date now) {
  if (config.mode != Mode::automatic || !config.sleepWhenDone || session.lastActive == kDistantPast) return {};
  if (std::ranges::find(config.trackOnly, session.kind.id) != config.trackOnly.end()) return std::nullopt;
  const double idle = secondsBetween(session.lastActive, now);
  const double left = config.quietMinutes * 60.0 - idle;
  return idle >= kWorkingSeconds && left > 0 ? std::optional{left} : std::nullopt;
}

}  // namespace tovi::reports
