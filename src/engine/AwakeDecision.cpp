#include "engine/AwakeDecision.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/Dates.h"
#include "core/Guard.h"
#include "core/PanelFormat.h"

namespace tovi {

namespace {

constexpr double kHotMinutes = 5;
constexpr double kGoneGraceSeconds = 120;  // after the last agent has gone, when quiet agents don't end the session

double quietSeconds(const Config& config) { return config.quietMinutes * 60.0; }

// What the mode and the requests ask for, before safety.
void choose(const AwakeReadings& readings, AwakeVerdict& verdict) {
  if (readings.mode == Mode::on) {
    verdict.wants = true;
    verdict.reason = readings.onUntil ? "Awake until " + dates::shortTime(*readings.onUntil) : "Always awake";
  } else if (readings.lastHoldReason) {
    verdict.wants = true;
    verdict.reason = readings.lastHoldReason;
  } else if (readings.mode == Mode::automatic && !readings.snoozed && readings.workReason) {
    verdict.wants = true;
    verdict.reason = readings.workReason;
  }
}

// The limits of the battery. Whether a charger ends a latched floor is decided on every way but the one through
// the floor itself, where the percentage alone counts.
void limitByBattery(const AwakeReadings& readings, AwakeVerdict& verdict) {
  const bool draining = onBattery(readings.battery);
  if (verdict.wants && readings.onlyOnPower && draining) {
    verdict.blockedReason = "Only on power";
  } else if (verdict.wants && readings.batteryFloor >= 1 && !readings.floorOverride && draining) {
    const int percent = readings.battery->percent;
    if (percent <= readings.batteryFloor && !without(Guard::batteryLimit)) verdict.floorLatched = true;
    if (verdict.floorLatched && percent <= readings.batteryFloor + kFloorRecovery) {
      verdict.blockedReason = fmt::format("Battery at {}%", percent);
      return;
    }
    if (percent > readings.batteryFloor + kFloorRecovery) verdict.floorLatched = false;
    verdict.allowed = true;
    return;
  } else {
    verdict.allowed = verdict.wants;
  }
  if (readings.battery && readings.battery->charging) verdict.floorLatched = false;
}

void limitByHeat(const AwakeReadings& readings, AwakeVerdict& verdict) {
  if (!readings.lidClosed || readings.thermal < ThermalState::serious) {
    verdict.hotSince.reset();
  } else if (!verdict.hotSince) {
    verdict.hotSince = readings.now;
  }
  const bool hotForLong = verdict.hotSince && secondsBetween(*verdict.hotSince, readings.now) >= kHotMinutes * 60;
  const bool tooHot = readings.thermal == ThermalState::critical || hotForLong;
  if (verdict.allowed && readings.heatGuard && tooHot && !without(Guard::heat)) {
    verdict.blockedReason = "Too hot";
    verdict.allowed = false;
  }
}

}  // namespace

bool onBattery(const std::optional<BatteryReading>& battery) {
  return battery && (!battery->onAC || (battery->watts > 0.3 && !battery->charging));
}

const AgentSession* activeAgent(const std::vector<AgentSession>& sessions, const Config& config, Date now) {
  for (const AgentSession& session : sessions) {
    if (session.kind == AgentKind::claudeApp() && !config.countClaudeApp) continue;
    if (std::find(config.trackOnly.begin(), config.trackOnly.end(), session.kind.id) != config.trackOnly.end())
      continue;
    if (config.sleepWhenDone && secondsBetween(session.lastActive, now) >= quietSeconds(config)) continue;
    return &session;
  }
  return nullptr;
}

std::string describe(const AgentSession& session) {
  const std::string& name = session.kind.name;
  if (session.kind.isRequest()) return name + " asked to stay awake";
  if (session.kind.isApp()) return name + " is busy";
  return name + " is working";
}

std::optional<std::string> workReason(const std::vector<AgentSession>& sessions, const Config& config,
                                      const std::optional<Sighting>& lastWork, const std::optional<Sighting>& lastSeen,
                                      Date now) {
  const double quiet = config.sleepWhenDone ? quietSeconds(config) : kGoneGraceSeconds;
  const AgentSession* session = activeAgent(sessions, config, now);
  if (session == nullptr) {
    const auto& last = config.sleepWhenDone ? lastWork : lastSeen;
    if (!last) return std::nullopt;
    const double remaining = quiet - secondsBetween(last->at, now);
    if (remaining <= 0) return std::nullopt;
    return fmt::format("{} stopped · sleeps in {}", last->name, PanelFormat::minutes(remaining));
  }
  if (session->kind.isRequest()) return describe(*session);
  const std::string label =
      session->instances >= 2 ? fmt::format("{} ×{}", session->kind.name, session->instances) : session->kind.name;
  const double idle = secondsBetween(session->lastActive, now);
  if (idle < kWorkingSeconds) {
    // A tool that runs while the agent itself draws next to nothing is a long command, not thinking.
    if (session->toolRunning && session->watts < session->kind.idleWatts) return label + " is running a command";
    return describe(*session);
  }
  if (!config.sleepWhenDone) return label + " is open";
  return fmt::format("{} went idle · sleeps in {}", label, PanelFormat::minutes(quiet - idle));
}

AwakeVerdict decideAwake(const AwakeReadings& readings) {
  AwakeVerdict verdict;
  verdict.floorLatched = readings.floorLatched;
  verdict.hotSince = readings.hotSince;
  choose(readings, verdict);
  limitByBattery(readings, verdict);
  limitByHeat(readings, verdict);
  return verdict;
}

}  // namespace tovi
