// Into the closed state and out of it. Every change made here has a way back that works by itself: a marker file,
// the journal or a saved value.

#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "observe/DisplayPower.h"
#include "observe/SystemSwitches.h"
#include "platform/Assertions.h"
#include "platform/Clock.h"
#include "platform/MainQueue.h"

namespace tovi {

namespace {

constexpr Seconds kLidPoll{0.5};
// A screen that was switched off can lock the session within this long; looked at three times.
constexpr double kLockChecks[] = {2, 6, 12};

}  // namespace

void Engine::lidChanged(bool closed) {
  followClock();
  lidClosed = closed;
  if (closed) {
    if (holding) enterClosed();
    return;
  }
  snoozed = false;
  sleepRetries = 0;
  if (holding) accumulateSavings();
  restoreClosedState();
  if (!receipt.get() || receipt.get()->openedAt) return;
  const Date openedAt = now();
  receipt.update([&](std::optional<Receipt>& record) {
    record->openedAt = openedAt;
    if (!record->endPercent && battery.get()) record->endPercent = battery.get()->percent;
  });
  finishSession(openedAt);
  if (onAnnounce) onAnnounce("Welcome back", receiptLine(*receipt.get()));
}

void Engine::enterClosed() {
  const Date at = now();
  if (receipt.get() && !receipt.get()->openedAt && !previewOnly_) finishSession(at);
  Receipt record;
  record.closedAt = at;
  if (battery.get()) record.startPercent = battery.get()->percent;
  if (const AgentSession* agent = activeAgent()) {
    record.agentName = agent->kind.name;
  } else if (!holds->empty()) {
    record.agentName = holds->back().reason;
  }
  receipt = record;
  sessionWh = 0;
  sleepInfo.reset();
  lastSavingSample = at;
  openDrawAtClose = openDraw;
  if (previewOnly_) return;

  if (config->lockOnClose) {
    holdDisplayAwake(false);  // one that couldn't be given up last time
    shell().run("/usr/bin/pmset", {"displaysleepnow"});
  } else {
    holdDisplayAwake(true);
    darkenScreen();
    // With the display held awake a lid that opens must be noticed fast.
    lidPoll_.reset();
    if (!lidWatcher_) {
      lidPoll_ = machine_.queue.every(kLidPoll, Seconds{0}, [this] {
        if (lidClosed && !Registry::lidClosed(machine_)) lidChanged(false);
      });
    }
  }
  reapplyClosedState(std::nullopt);
  const BackgroundWork::Found& found = background;
  if (config->shutDownSimulators && config->preset != Preset::speed && !found.testsRunning && !found.agentUsesXcode &&
      found.simulatorDevices > 0) {
    machine_.queue.offMain([machine = machine_]() -> MainQueue::Task {
      Shell(machine.commands).run("/usr/bin/xcrun", {"simctl", "shutdown", "all"});
      return {};
    });
  }
}

void Engine::reapplyClosedState(std::optional<Preset> forcing) {
  if (previewOnly_) return;
  const Preset preset = forcing.value_or(config->preset);
  if (preset != Preset::speed && config->lowPowerWhileClosed) {
    setLowPower();
  } else {
    restorePowerMode();
  }
  if (preset == Preset::speed || !config->pauseTimeMachine) {
    TimeMachine::resume(machine_, state_);
  } else {
    TimeMachine::pause(machine_, state_);
  }
  applyClosedTargets(preset, {});
}

void Engine::restoreClosedState() {
  if (previewOnly_) return;
  lidPoll_.reset();
  heatForced = false;  // the next closing starts from the person's preset
  ++screenSwitches_;
  const bool screenBack = DisplayPower::restoreBuiltIn(machine_, state_);
  if (!screenBack) warning = warnings::kDisplayStuck;
  screenOff = false;
  Brightness::restore(machine_, state_);
  holdDisplayAwake(false);
  restoreApps();
  restorePowerMode();
  if (!TimeMachine::resume(machine_, state_)) warning = warnings::kBackupsStuck;
}

void Engine::holdDisplayAwake(bool flag) {
  if (flag) {
    if (displayAssertion_ == 0 && !previewOnly_) {
      displayAssertion_ = machine_.assertions.holdDisplayAwake("Tovi: lid-closed session (no lock screen on reopen)");
    }
  } else if (displayAssertion_ != 0 && machine_.assertions.release(displayAssertion_)) {
    displayAssertion_ = 0;
  }
}

void Engine::darkenScreen() {
  if (previewOnly_) return;
  Brightness::dimForClosedLid(machine_, state_);
  if (config->screenOffNoLock) switchScreenOff();
}

void Engine::switchScreenOff() {
  if (previewOnly_) return;
  const bool wasLocked = DisplayPower::sessionLocked(machine_);
  screenOff = DisplayPower::turnOffBuiltIn(machine_, state_);
  const int switched = ++screenSwitches_;  // also ends what an earlier switch-off still wanted to look at
  if (!screenOff || wasLocked) return;
  for (const double seconds : kLockChecks) {
    delayed_.after(Seconds{seconds}, [this, switched] {
      if (switched != screenSwitches_) return;  // that closing is over
      if (!screenOff || !config->screenOffNoLock || !DisplayPower::sessionLocked(machine_)) return;
      // It locked because the screen went off, and the person asked for no lock: never again.
      DisplayPower::restoreBuiltIn(machine_, state_);
      screenOff = false;
      Brightness::dimForClosedLid(machine_, state_);
      Config next = config;
      next.screenOffNoLock = false;
      apply(std::move(next), true);
      raiseWarning(warnings::kScreenLocks);
    });
  }
}

void Engine::setLowPower() { PowerMode::setLow(machine_, state_); }
void Engine::restorePowerMode() { PowerMode::restore(machine_, state_); }
bool Engine::lowPowerSet() const { return PowerMode::lowSet(state_); }

}  // namespace tovi
