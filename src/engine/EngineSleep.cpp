// As the machine goes to sleep and powers on again: the next wake is planned, and each wake becomes a hold, a short
// check-in for the phone, or nothing.

#include <algorithm>

#include "core/PanelFormat.h"
#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "platform/Assertions.h"
#include "platform/Clock.h"
#include "safety/Heartbeat.h"

namespace tovi {

namespace {

constexpr int kWakeSteps[] = {3600, 1800, 900, 300, 60};  // seconds
constexpr double kLeastStep = 60;
constexpr double kStepSlack = 30;  // makes an interval of exactly a step choose that step
constexpr double kEarlyWake = 90;  // a stepped plan can arrive this much early and still count
constexpr double kCheckIn = 25;
constexpr Seconds kCheckInEnd{kCheckIn + 0.5};

}  // namespace

std::optional<int> WakePlan::nextStep(std::optional<double> untilWake, int checkInMinutes) {
  if (checkInMinutes < 1 && !untilWake) return std::nullopt;
  double target = checkInMinutes < 1 ? std::max(*untilWake, kLeastStep) : checkInMinutes * 60.0;
  if (untilWake) target = std::min(target, std::max(*untilWake, kLeastStep));
  target += kStepSlack;
  for (const int step : kWakeSteps) {
    if (target >= step) return step;
  }
  return static_cast<int>(kLeastStep);
}

void Engine::macWillSleep() {
  followClock();
  // Only the session that asked for this sleep: after the lid was opened it is the person who sends it to sleep.
  if (receipt.get() && receipt.get()->sleepRequestedAt && !receipt.get()->sleptAt && !receipt.get()->openedAt) {
    receipt.update([&](std::optional<Receipt>& record) { record->sleptAt = now(); });
  }
  sleepRetries = 0;
  scheduleWake();
}

void Engine::scheduleWake() {
  nextWakeAt = std::nullopt;
  if (previewOnly_ || !wakeReady) return;
  const Date at = now();
  const auto untilWake = config->wakeAt ? std::optional{*config->wakeAt - unixSeconds(at)} : std::nullopt;
  const int minutes = Registry::lidClosed(machine_) ? config->checkInMinutes : 0;
  const auto step = WakePlan::nextStep(untilWake, minutes);
  if (!step) return;
  if (shell().pmsetRoot({"relative", "wake", std::to_string(*step)})) {
    nextWakeAt = at + static_cast<double>(*step);
  } else {
    wakeReady = setup().wakeReady();
  }
}

void Engine::poweredOn() {
  // The beat grew old in the sleep, and the watchdog may run before the next tick.
  if (!previewOnly_) Heartbeat::beat(machine_, state_);
  followClock();
  // The cached lid may be stale on a dark wake.
  if (previewOnly_ || holding || checkInUntil || !Registry::lidClosed(machine_)) return;
  const Date at = now();
  if (config->wakeAt && *config->wakeAt - kEarlyWake <= unixSeconds(at)) {
    const int minutes = config->wakeForMinutes;
    Config next = config;
    next.wakeAt.reset();
    apply(std::move(next), true);
    Hold hold;
    hold.id = Hold::newId();
    hold.reason = "Scheduled wake";
    hold.created = at;
    hold.until = at + minutes * 60.0;
    holds.update([&](std::vector<Hold>& all) { all.push_back(hold); });
    saveRuntime();
    evaluate();
    announce("Scheduled wake", "Staying awake for " + PanelFormat::duration(minutes));
    return;
  }
  if ((config->checkInMinutes < 1 && !config->wakeAt) || !setupReady) return;
  state_.touch(state_.path("hold"));
  if (!state_.exists("hold")) return;  // no marker, no switch
  if (!switchSleepOff()) {
    if (!pendingRelease && !adoptedHoldUntil) state_.remove(state_.path("hold"));
    return;
  }
  pendingRelease = false;
  clearWarning(warnings::kReleasePending);
  const Date until = at + kCheckIn;
  checkInUntil = until;
  checkInActivity_ =
      machine_.assertions.beginActivity(Assertions::Activity::preventingIdleSystemSleep, "Checking for phone commands");
  if (onCheckIn) onCheckIn();
  delayed_.after(kCheckInEnd, [this, until] {
    if (checkInUntil == until) endCheckIn();
  });
}

void Engine::endCheckIn() {
  checkInUntil.reset();
  checkInActivity_.reset();
  if (holding) return;
  if (switchSleepOn()) {
    state_.remove(state_.path("hold"));
  } else {
    pendingRelease = true;
  }
  if (Registry::lidClosed(machine_)) shell().pmsetRoot({"sleepnow"});
}

}  // namespace tovi
