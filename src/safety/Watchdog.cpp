#include "safety/Watchdog.h"

#include <fmt/format.h>

#include "agents/AutoApprove.h"
#include "core/Guard.h"
#include "core/Shell.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "observe/DisplayPower.h"
#include "observe/Sensors.h"
#include "observe/SystemSwitches.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "safety/Heartbeat.h"
#include "safety/Journal.h"

namespace tovi {

namespace {

constexpr char kRestored[] = "restored";
constexpr char kPartlyRestored[] = "partly restored";

// Sleep goes back on only if the marker says that we switched it off: without it a set switch is somebody else's.
bool releaseSleep(const Machine& machine, const StateFiles& state) {
  if (!state.exists("hold")) return true;
  const bool released =
      Registry::sleepDisabled(machine) != true || Shell(machine.commands).pmsetRoot({"-a", "disablesleep", "0"});
  if (!released && !without(Guard::markerUntilRescued)) return false;
  state.remove(state.path("hold"));
  return true;
}

}  // namespace

std::unique_ptr<Files::Lock> Watchdog::turn(const Machine& machine, const StateFiles& state) {
  constexpr Seconds kPatience{5};
  return machine.files.tryLock(state.path("recovery.lock"), kPatience);
}

std::string Watchdog::run(const Machine& machine, const StateFiles& state, bool force) {
  const auto alive = [&] { return !force && Heartbeat::appIsAlive(machine, state); };
  if (alive()) return "alive";
  const auto held = turn(machine, state);
  if (alive()) return "alive";  // it has started meanwhile

  Journal::undoLegacyFiles(machine, state);
  const auto left = Journal::undoAll(machine, Journal::load(state));
  Journal::save(machine, state, left);

  const bool screenOn = DisplayPower::restoreBuiltIn(machine, state);
  Brightness::restore(machine, state);
  const bool lit = !state.exists("brightness-restore");
  const bool fullPower = PowerMode::restore(machine, state);
  const bool sleeps = releaseSleep(machine, state);
  const bool backsUp = TimeMachine::resume(machine, state);
  return left.empty() && screenOn && lit && fullPower && sleeps && backsUp ? kRestored : kPartlyRestored;
}

std::vector<std::string> Watchdog::outstanding(const Machine& machine, const StateFiles& state) {
  std::vector<std::string> items;
  for (const Touched& entry : Journal::load(state)) {
    items.push_back(fmt::format("{} {} (pid {})", entry.paused ? "paused" : "slowed",
                                text::lastPathComponent(entry.path), entry.pid));
  }
  const bool sleepIsOff = Registry::sleepDisabled(machine) == true;
  if (sleepIsOff) {
    items.emplace_back("sleep is switched off (pmset disablesleep 1)");
  } else if (state.exists("hold")) {
    items.emplace_back("hold marker present");
  }
  if (PowerMode::lowSet(state)) items.emplace_back("Low Power Mode changed");
  if (TimeMachine::paused(state)) items.emplace_back("Time Machine automatic backups paused");
  if (AutoApprove::isOn(state)) {
    items.emplace_back(
        "Approve everything is on: Claude Code and Codex run without asking (turn off in Settings › AI)");
  }
  if (state.exists("brightness-restore")) items.emplace_back("screen dimmed to zero");
  if (state.exists("display-off")) items.emplace_back("built-in screen switched off");
  return items;
}

}  // namespace tovi
