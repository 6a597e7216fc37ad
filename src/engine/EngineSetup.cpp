// Set-up as the running application does it: off the main thread, its outcome back on it.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "engine/Engine.h"
#include "engine/Warnings.h"
#include "platform/MainQueue.h"
#include "safety/Watchdog.h"

namespace tovi {

void Engine::runSetup(std::function<void()> then) {
  if (previewOnly_) {
    if (then) then();
    return;
  }
  auto finished = whileAlive([this, then = std::move(then)](const SetupError& failure, bool ready, bool wakes) {
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

// The sleep switch can disagree with us: a hold began or ended while set-up proved its permission by it, or a rescue
// took this process for dead while it was only stopped.
void Engine::settleSwitch() {
  if (!setupReady) return;
  const auto off = Registry::sleepDisabled(machine_);
  if (holding && off == false) {
    if (switchSleepOff()) {
      clearWarning(warnings::kHoldRefused);
    } else {
      raiseWarning(warnings::kHoldRefused);
    }
  } else if (!holding && off == true && !state_.exists("hold")) {
    switchSleepOn();
  }
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
  // Or the next look at the watchdog would find it missing and put it back.
  watchdogRepairTried_ = true;
  setupReady = setup().setupReady();
  wakeReady = false;
  return failure;
}

void Engine::checkWatchdog() {
  if (previewOnly_ || !setupReady) return;
  auto checked = whileAlive([this](bool loaded, bool repaired) {
    if (repaired) watchdogRepairTried_ = true;
    if (!loaded) {
      raiseWarning(warnings::kWatchdogMissing);
    } else if (!warningStillTrue()) {
      warning = std::nullopt;
    }
  });
  machine_.queue.offMain([machine = machine_, mayRepair = !watchdogRepairTried_, checked]() -> MainQueue::Task {
    const StateFiles state(machine);
    const Setup setup(machine, state);
    bool loaded = setup.watchdogLoaded();
    const bool repair = !loaded && mayRepair && setup.watchdogReady();  // not what was removed on purpose meanwhile
    if (repair) {
      (void)setup.installWatchdog();  // what counts is whether it is loaded afterwards
      loaded = setup.watchdogLoaded();
    }
    return [checked, loaded, repair] { checked(loaded, repair); };
  });
}

}  // namespace tovi
