// The two-second turn: what is looked at in which of them, so that each stays cheap.

#include <algorithm>

#include "core/Guard.h"
#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "observe/DisplayPower.h"
#include "observe/SystemSwitches.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "safety/Heartbeat.h"

namespace tovi {

namespace {

constexpr int kSleepRetries = 3;
constexpr double kSleepRetryStep = 60;  // seconds
constexpr double kPassed = 3600;

// One that came while the person was at work: kept, it would wake a laptop in its bag right after the next sleep.
void dropPassedWake(Engine& engine) {
  const auto& wake = engine.config->wakeAt;
  if (!wake || *wake + kPassed > unixSeconds(engine.now())) return;
  Config next = engine.config;
  next.wakeAt.reset();
  engine.apply(std::move(next), true);
}

}  // namespace

void Engine::tick() {
  ++ticks;
  const auto every = [this](std::int64_t count) { return ticks % count == 0; };

  Heartbeat::beat(machine_, state_);
  followClock();
  retrySleep();
  if (const bool closed = Registry::lidClosed(machine_); closed != lidClosed) lidChanged(closed);
  if (panelOpen || every(5)) readBattery();
  if (every(panelOpen ? 2 : lidClosed ? 8 : 5)) sampleWatchers();
  if (panelOpen || every(15)) sampleEnergy();
  if (lidClosed && holding && !powerTestRunning && every(15)) {
    applyClosedTargets(heatForced ? Preset::longest : config->preset, {});
  }
  if (!(lidClosed && holding) && !measuring && every(5) && !without(Guard::repair)) repairClosedState();
  if (!lidClosed && every(2)) repairScreen();
  if (holding) state_.touch(state_.path("hold"));
  if (holding && every(5)) settleSwitch();
  if (ticks % 150 == 3) checkWatchdog();
  if (statsUnsaved_ && every(30)) saveStats();
  if (runtimeUnsaved_ && every(5)) saveRuntime();
  // One that couldn't be removed: it would make ours what somebody else switches later.
  const bool markerStandsForUs = holding || checkInUntil || adoptedHoldUntil;
  if (!markerStandsForUs && every(5) && state_.exists("hold")) pendingRelease = true;
  if (pendingRelease) retryRelease();
  if (every(5)) reloadConfigIfEdited();
  if (every(30) && !lidClosed) dropPassedWake(*this);
  evaluate();
  settleAdoptedHold();
  settleWarning();
}

bool Engine::sleepIsAwaited() const {
  const auto& last = receipt.get();
  return last && last->sleepRequestedAt && !last->sleptAt && !last->openedAt && sleepRetries < kSleepRetries;
}

void Engine::retrySleep() {
  if (!lidClosed || holding || !sleepIsAwaited()) return;
  const double waited = secondsBetween(*receipt.get()->sleepRequestedAt, now());
  if (waited < kSleepRetryStep * static_cast<double>(sleepRetries + 1)) return;
  ++sleepRetries;
  shell().pmsetRoot({"sleepnow"});
}

void Engine::sampleWatchers() {
  followClock();  // asked for from outside too, between two ticks
  std::vector<AgentKind> kinds;
  for (const CustomAgent& agent : config->customAgents) kinds.push_back(AgentKind::custom(agent));
  watcher_.sample(config->watchedApps, config->countRequests, kinds);
  sessions = watcher_.sessions();
  blockers = watcher_.blockers();
  const Date at = now();
  for (const AgentSession& session : *sessions) {
    const auto& shownOnly = config->trackOnly;
    if (session.kind.isRequest() || std::find(shownOnly.begin(), shownOnly.end(), session.kind.id) != shownOnly.end() ||
        (session.kind == AgentKind::claudeApp() && !config->countClaudeApp)) {
      continue;
    }
    lastSeen = Sighting{at, session.kind.name};
    if (secondsBetween(session.lastActive, at) < kWorkingSeconds) {
      lastWork = Sighting{std::max(at + -kWorkingSeconds, session.lastActive), session.kind.name};
    }
  }
  detectFinished();
}

void Engine::sampleEnergy() {
  auto sampled = sampler_.sample();
  if (sampled.empty()) return;
  keepApps(std::move(sampled));
  updateBaseline();
  if (lidClosed && holding) accumulateSavings();
}

// What a session left behind because its undoing failed.
void Engine::repairClosedState() {
  if (!touched->empty() || state_.exists("touched.json")) restoreApps();
  holdDisplayAwake(false);
  if (lowPowerSet()) restorePowerMode();
  if (!TimeMachine::resume(machine_, state_)) raiseWarning(warnings::kBackupsStuck);
}

void Engine::repairScreen() {
  if (!DisplayPower::restoreBuiltIn(machine_, state_)) raiseWarning(warnings::kDisplayStuck);
  if (state_.exists("brightness-restore")) Brightness::restore(machine_, state_);
}

void Engine::retryRelease() {
  if (!switchSleepOn()) {
    raiseWarning(warnings::kReleasePending);  // another one may have stood in its way
    return;
  }
  pendingRelease = false;
  clearWarning(warnings::kReleasePending);
  state_.remove(state_.path("hold"));
  // What retrySleep() won't ask for again.
  if (!holding && !sleepIsAwaited() && Registry::lidClosed(machine_)) shell().pmsetRoot({"sleepnow"});
}

}  // namespace tovi
