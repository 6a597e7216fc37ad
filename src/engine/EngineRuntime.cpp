// What outlives a run: explicit holds, the safety settings last accepted, edits of the settings file; and the
// cleaning up after a run that died.

#include <nlohmann/json.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "core/Json.h"
#include "engine/Engine.h"
#include "observe/DisplayPower.h"
#include "observe/SystemSwitches.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Processes.h"
#include "safety/Safety.h"

namespace tovi {

namespace {

constexpr double kAdoptionGrace = 30;  // seconds

}  // namespace

void Engine::saveRuntime() {
  if (previewOnly_) return;
  json::Value list = json::Value::array();
  for (const Hold& hold : *holds) list.push_back(hold.toJson());
  state_.writeAtomically(json::pretty({{"holds", std::move(list)}}), state_.path("runtime.json"));
}

void Engine::restoreRuntime() {
  const auto text = state_.read("runtime.json");
  const auto document = text ? json::parseObject(*text) : std::nullopt;
  const json::Value* list = document ? json::member(*document, "holds") : nullptr;
  if (list == nullptr || !list->is_array()) return;
  const Date at = now();
  std::vector<Hold> kept;
  for (const json::Value& entry : *list) {
    auto hold = Hold::fromJson(entry);
    if (!hold) return;
    if (hold->until && *hold->until < at) continue;
    if (hold->pid) {
      const auto start = machine_.processes.startTime(*hold->pid);
      if (!start || start != hold->pidStart) continue;
    }
    kept.push_back(std::move(*hold));
  }
  holds = std::move(kept);
}

void Engine::recoverFromCrash() {
  Journal::undoLegacyFiles(machine_, state_);
  touched = Journal::undoAll(machine_, Journal::load(state_));
  Journal::save(machine_, state_, touched);
  restorePowerMode();
  TimeMachine::resume(machine_, state_);
  DisplayPower::restoreBuiltIn(machine_, state_);
  Brightness::restore(machine_, state_);
  if (state_.exists("hold") && Registry::sleepDisabled(machine_) == true) {
    // An interrupted session: dropping it by reflex would put a working agent to sleep.
    adoptedHoldUntil = now() + kAdoptionGrace;
    return;
  }
  state_.remove(state_.path("hold"));
}

void Engine::configFileChanged() {
  const auto text = state_.read("config.json");
  auto edited = text ? Config::decode(*text) : std::nullopt;
  if (!edited || *edited == config) return;
  apply(std::move(*edited), false);
  enforceSafety();
}

void Engine::reloadConfigIfEdited() {
  const auto status = machine_.files.status(Config::path(state_));
  if (!status || status == configStatus_) return;
  configStatus_ = status;  // also of a broken edit, so that it isn't tried again and again
  configFileChanged();
}

void Engine::enforceSafety() {
  if (previewOnly_) return;
  const Safety wanted{config->heatGuard, config->batteryFloor};
  const auto accepted = Safety::load(state_);
  if (!accepted) {
    wanted.save(state_);
    return;
  }
  std::vector<std::string> lost;
  Config corrected = config;
  if (accepted->heatGuard && !corrected.heatGuard) {
    corrected.heatGuard = true;
    lost.push_back("the heat guard stays on");
  }
  if (corrected.batteryFloor < accepted->batteryFloor) {
    corrected.batteryFloor = accepted->batteryFloor;
    lost.push_back(fmt::format("the battery limit stays at {}%", accepted->batteryFloor));
  }
  if (lost.empty()) {
    if (wanted != *accepted) wanted.save(state_);
    return;
  }
  config = corrected;
  state_.writeAtomically(config->encoded(), Config::path(state_));
  note("Settings file change ignored",
       fmt::format("Safety settings can only be loosened in Tovi itself: {}.", fmt::join(lost, " and ")));
}

}  // namespace tovi
