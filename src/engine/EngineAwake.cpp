// The decision put into effect: the one switch that matters, thrown and given back such that a failure at any
// point leaves something that a later tick, or the watchdog, can finish.

#include <algorithm>

#include "core/Guard.h"
#include "engine/Engine.h"
#include "engine/ReportTexts.h"
#include "engine/Warnings.h"
#include "observe/SystemSwitches.h"
#include "platform/Assertions.h"
#include "platform/Clock.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

constexpr double kHoldRetrySeconds = 30;  // between two tries of a refused switch

constexpr char kFolderUnwritable[] = "Tovi couldn't write to its folder, so it won't switch sleep off";

// What decides whether the laptop stays awake or can sleep at all.
bool isAboutSleep(std::string_view text) {
  return text == warnings::kHoldRefused || text == warnings::kReleasePending || text == warnings::kPowerChange;
}

}  // namespace

const AgentSession* Engine::activeAgent() const { return tovi::activeAgent(sessions, config, now()); }

std::optional<std::string> Engine::workReason() const {
  return tovi::workReason(sessions, config, lastWork, lastSeen, now());
}

std::optional<Date> Engine::onUntil() const { return reports::onUntil(config); }

bool Engine::blockedByFloor() const {
  return wantsHold && config->batteryFloor > 0 && onBattery(battery) && !floorOverride &&
         battery.get()->percent <= config->batteryFloor + (floorLatched ? kFloorRecovery : 0);
}

AwakeReadings Engine::awakeReadings() const {
  AwakeReadings readings;
  readings.now = now();
  readings.mode = config->mode;
  if (!holds->empty()) readings.lastHoldReason = holds->back().reason;
  readings.snoozed = snoozed;
  // Only asked where it can matter, since it walks the sessions and words the answer.
  if (config->mode == Mode::automatic && holds->empty() && !snoozed) readings.workReason = workReason();
  readings.onUntil = onUntil();
  readings.onlyOnPower = config->onlyOnPower;
  readings.batteryFloor = config->batteryFloor;
  readings.heatGuard = config->heatGuard;
  readings.battery = battery;
  readings.floorOverride = floorOverride;
  readings.lidClosed = lidClosed;
  readings.thermal = thermal;
  readings.floorLatched = floorLatched;
  readings.hotSince = hotSince;
  return readings;
}

void Engine::evaluate() {
  followClock();
  if (!setupReady) {
    if (holding) endHold("Setup needs repair");
    return;
  }
  if (expireAlways()) return;
  expireHolds();
  const AwakeVerdict verdict = decideAwake(awakeReadings());
  wantsHold = verdict.wants;
  if (!verdict.wants && holdFailedAt) {
    holdFailedAt.reset();
    clearWarning(warnings::kHoldRefused);
  }
  blockedReason = verdict.blockedReason;
  floorLatched = verdict.floorLatched;
  hotSince = verdict.hotSince;
  holdReason = verdict.reason;
  if (verdict.allowed && !holding) {
    startHold(verdict.reason);
  } else if (!verdict.allowed && holding) {
    if (verdict.blockedReason) {
      endHold(*verdict.blockedReason);
    } else if (config->mode == Mode::off) {
      endHold("Turned off");
    } else {
      endHold((sessions->empty() ? "Work" : sessions->front().kind.name) + " finished");
    }
  }
  relieveHeat();
}

bool Engine::expireAlways() {
  const auto until = onUntil();
  if (!until || now() <= *until) return false;
  Config next = config;
  next.mode = next.modeBeforeAlways.value_or(Mode::automatic);
  next.alwaysUntil.reset();
  next.modeBeforeAlways.reset();
  apply(std::move(next), true);
  return true;
}

// Whoever has the owner's number and another start is somebody else; where no start was noted, whoever started after
// the hold was made.
bool Engine::ownerLives(const Hold& hold) const {
  constexpr double kSlack = 2;  // seconds; the two clocks are read one after the other
  const auto start = machine_.processes.startTime(*hold.owner);
  if (!start || hold.ownerStart) return start && start == hold.ownerStart;
  return static_cast<double>(*start) / 1e6 + clockOffset() < unixSeconds(hold.created) + kSlack;
}

bool Engine::holdStands(const Hold& hold, Date at) const {
  if (hold.until && at > *hold.until && !without(Guard::holdEnd)) return false;
  const bool beforeBoot = bootTime_ && hold.created < *bootTime_;
  if (hold.owner && (beforeBoot || !ownerLives(hold))) return false;
  if (!hold.pid || without(Guard::holdProcess)) return true;
  if (beforeBoot) return false;
  const auto start = machine_.processes.startTime(*hold.pid);
  return start && (!hold.pidStart || *hold.pidStart == *start);
}

void Engine::expireHolds() {
  const Date at = now();
  const auto lapsed = [&](const Hold& hold) { return !holdStands(hold, at); };
  if (std::none_of(holds->begin(), holds->end(), lapsed)) return;
  holds.update([&](std::vector<Hold>& all) { std::erase_if(all, lapsed); });
  saveRuntime();
}

// Whoever wants it, for whatever reason: somebody may have taken the marker away since it was written, or it may stand
// where a loss of power would take it, which the switch survives.
bool Engine::switchSleepOff() {
  const bool marked = state_.exists("hold") && machine_.files.syncFolder(state_.dir());
  return (marked || without(Guard::markerFirst)) && shell().pmsetRoot({"-a", "disablesleep", "1"});
}
bool Engine::switchSleepOn() { return shell().pmsetRoot({"-a", "disablesleep", "0"}); }

void Engine::startHold(const std::optional<std::string>& reason) {
  if (previewOnly_) {
    holding = true;
    return;
  }
  if (holdFailedAt) {
    if (secondsBetween(*holdFailedAt, now()) < kHoldRetrySeconds) return;
  }
  // No marker, no switch: a hold without it could never be cleaned up after a crash.
  const std::string marker = state_.path("hold");
  state_.touch(marker);
  if (!state_.exists("hold") && !without(Guard::markerFirst)) {
    setupError = kFolderUnwritable;
    return;
  }
  if (setupError.get() == kFolderUnwritable) setupError = std::nullopt;
  if (!switchSleepOff()) {
    // Unless the marker already stood for a switch that somebody left off.
    if (!pendingRelease && !adoptedHoldUntil && !checkInUntil) state_.remove(marker);
    holdFailedAt = now();
    raiseWarning(warnings::kHoldRefused);
    setupReady = setup().setupReady();
    return;
  }
  holdFailedAt.reset();
  pendingRelease = false;
  clearWarning(warnings::kHoldRefused);
  clearWarning(warnings::kReleasePending);
  holding = true;
  activity_ = machine_.assertions.beginActivity(Assertions::Activity::allowingIdleSystemSleep,
                                                "Supervising a lid-closed session");
  // What a check-in had switched off is the hold's own from here on.
  checkInUntil.reset();
  checkInActivity_.reset();
  if (lidClosed) enterClosed();
  announce(reason.value_or("Staying awake"), "Close the lid, it keeps going");
}

void Engine::endHold(const std::string& because) {
  if (previewOnly_) {
    holding = false;
    return;
  }
  const bool wasClosed = lidClosed;
  if (wasClosed) {
    accumulateSavings();
    restoreClosedState();
  }
  if (switchSleepOn() || without(Guard::markerUntilReleased)) {
    state_.remove(state_.path("hold"));
  } else {
    pendingRelease = true;
    raiseWarning(warnings::kReleasePending);
  }
  holding = false;
  activity_.reset();
  if (!wasClosed) {
    announce(because, "Sleeps normally again");
    return;
  }
  sleepInfo = std::pair{now(), battery.get() ? battery.get()->usableWatts().value_or(0.0) : 0.0};
  if (receipt.get()) {
    receipt.update([&](std::optional<Receipt>& record) {
      record->sleepRequestedAt = now();
      record->sleptBecause = because;
      record->endPercent = battery.get() ? std::optional{battery.get()->percent} : std::nullopt;
    });
  }
  sleepRetries = 0;
  shell().pmsetRoot({"sleepnow"});
}

void Engine::relieveHeat() {
  if (holding && lidClosed && config->heatGuard && thermal.get() >= ThermalState::serious) {
    if (!heatForced && config->preset != Preset::longest) {
      heatForced = true;
      reapplyClosedState(Preset::longest);
    }
  } else if (heatForced) {
    heatForced = false;
    if (holding && lidClosed) reapplyClosedState(std::nullopt);
  }
}

void Engine::settleAdoptedHold() {
  if (!adoptedHoldUntil) return;
  if (holding) {
    adoptedHoldUntil.reset();
    return;
  }
  const bool nothingAsked = config->mode == Mode::off && holds->empty();
  if (setupReady && !blockedReason.get() && !nothingAsked && now() <= *adoptedHoldUntil) return;
  adoptedHoldUntil.reset();
  if (switchSleepOn()) {
    state_.remove(state_.path("hold"));
  } else {
    pendingRelease = true;
  }
  if (lidClosed) shell().pmsetRoot({"sleepnow"});
}

void Engine::announce(const std::string& title, const std::string& body) {
  if (!previewOnly_ && !lidClosed && onAnnounce) onAnnounce(title, body);
}

void Engine::note(const std::string& title, const std::string& body) {
  if (onNote) {
    onNote(title, body);
  } else {
    pendingNotes.emplace_back(title, body);
  }
}

// There is room for one warning. One that is known to be still true is not pushed out by another, unless that one
// matters more.
bool Engine::warningStillTrue() const {
  const auto& text = warning.get();
  if (!text) return false;
  if (*text == warnings::kReleasePending) return pendingRelease;
  if (*text == warnings::kPowerChange) return holding && Registry::sleepDisabled(machine_) != true;
  if (*text == warnings::kHoldRefused) return holdFailedAt.has_value();
  if (*text == warnings::kDisplayStuck) return state_.exists("display-off") && !screenOff;
  if (*text == warnings::kBackupsStuck) return TimeMachine::paused(state_) && !(lidClosed && holding);
  return false;
}

void Engine::raiseWarning(const std::string& text) {
  const bool mattersMore = isAboutSleep(text) && !isAboutSleep(warning.get().value_or(""));
  if (mattersMore || !warningStillTrue()) warning = text;
}

// A warning about something that has been put right meanwhile goes by itself.
void Engine::settleWarning() {
  const auto& text = warning.get();
  if (text && (*text == warnings::kDisplayStuck || *text == warnings::kBackupsStuck) && !warningStillTrue()) {
    warning = std::nullopt;
  }
}

void Engine::clearWarning(std::string_view text) {
  if (warning.get() == text) warning = std::nullopt;
}

}  // namespace tovi
