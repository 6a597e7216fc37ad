// Set-up as the running application does it: off the main thread, its outcome back on it.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "platform/MainQueue.h"
#include "safety/Watchdog.h"

namespace tovi {

void Engine::runSetup(std::function<void()> then) {
  if (previewOnly_ || settingUp_) {  // one dialog at a time
    if (then) then();
    return;
  }
  settingUp_ = true;
  auto finished = whileAlive([this, then = std::move(then)](const SetupError& failure, bool ready, bool wakes) {
    settingUp_ = false;
    setupError = failure;
    setupReady = ready;
    wakeReady = wakes;
    settleSwitch();
    if (!failure) evaluate();
    if (then) then();
  });
  machine_.queue.offMain([machine = machine_, finished]() -> MainQueue::Task {
    const StateFiles state(machine);
    const Setup setup(machine, state);
    const SetupError failure = setup.run();
    return
        [finished, failure, ready = setup.setupReady(), wakes = setup.wakeReady()] { finished(failure, ready, wakes); };
  });
}

void Engine::setupSeen(bool ready, bool wakes) {
  if (ready == setupReady && wakes == wakeReady) return;
  setupReady = ready;
  wakeReady = wakes;
  if (ready && setupError.get()) setupError = std::nullopt;
  evaluate();
}

// The sleep switch can disagree with us: a hold began while set-up proved its permission by it, or a rescue took this
// process for dead while it was only stopped, and then put back whatever the closed lid had changed too.
void Engine::settleSwitch() {
  if (!setupReady || !holding || Registry::sleepDisabled(machine_) != false) return;
  if (!switchSleepOff()) {
    raiseWarning(warnings::kHoldRefused);
    return;
  }
  clearWarning(warnings::kHoldRefused);
  if (!lidClosed || powerTestRunning) return;
  const bool isDark = state_.exists("brightness-restore") || state_.exists("display-off");
  if (!config->lockOnClose && !isDark) darkenScreen();
  reapplyClosedState(heatForced ? std::optional{Preset::longest} : std::nullopt);
}

SetupError Engine::uninstallHelper() {
  if (previewOnly_) return "Another copy of Tovi is running; remove the helper there.";
  Config next = config;
  next.mode = Mode::off;
  apply(std::move(next), true);
  releaseHold(std::nullopt);
  shutdown();
  if (const auto left = Watchdog::outstanding(machine_, state_); !left.empty()) {
    return fmt::format("Not removed yet: {}. Tovi keeps its helper so it can keep trying; try again in a minute.",
                       fmt::join(left, ", "));
  }
  SetupError failure = setup().uninstall();
  setupReady = setup().setupReady();
  // Removed by half: the next look at the watchdog would find it missing and put it back.
  if (setupReady) watchdogRepairTried_ = true;
  wakeReady = false;
  return failure;
}

void Engine::checkWatchdog() {
  if (previewOnly_ || !setupReady) return;
  machine_.queue.offMain([machine = machine_, checked = whileAlive([this](bool loaded) { watchdogSeen(loaded); })] {
    const StateFiles state(machine);
    return MainQueue::Task([checked, loaded = Setup(machine, state).watchdogLoaded()] { checked(loaded); });
  });
}

void Engine::watchdogSeen(bool loaded) {
  if (loaded) {
    if (!warningStillTrue()) warning = std::nullopt;
    return;
  }
  if (watchdogRepairTried_ || !setupReady) {  // not ready: it was removed on purpose meanwhile
    if (setupReady) raiseWarning(warnings::kWatchdogMissing);
    return;
  }
  watchdogRepairTried_ = true;
  machine_.queue.offMain([machine = machine_, checked = whileAlive([this](bool back) { watchdogSeen(back); })] {
    const StateFiles state(machine);
    const Setup setup(machine, state);
    (void)setup.installWatchdog();  // what counts is whether it is loaded afterwards
    return MainQueue::Task([checked, back = setup.watchdogLoaded()] { checked(back); });
  });
}

}  // namespace tovi
