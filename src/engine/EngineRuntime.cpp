// What outlives a run: explicit holds, the safety settings last accepted, edits of the settings file; and the
// cleaning up after a run that died.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Guard.h"
#include "core/Json.h"
#include "core/Text.h"
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
  const json::Value clock{{"boot", bootMark()},
                          {"offset", json::rounded(clockOffset(), 3)},
                          {"at", json::rounded(unixSeconds(machine_.clock.now()), 3)}};
  const std::string text = json::pretty({{"holds", std::move(list)}, {"clock", clock}});
  runtimeUnsaved_ = !state_.writeAtomically(text, state_.path("runtime.json"));
}

void Engine::restoreRuntime() {
  const auto text = state_.read("runtime.json");
  const auto document = text ? json::parseObject(*text) : std::nullopt;
  const json::Value* list = document ? json::member(*document, "holds") : nullptr;
  std::vector<Hold> stored;
  if (list != nullptr && list->is_array()) {
    for (const json::Value& entry : *list) {
      auto hold = Hold::fromJson(entry);
      if (!hold) return;
      stored.push_back(std::move(*hold));
    }
  }
  holds = std::move(stored);
  settleClock(document ? json::member(*document, "clock") : nullptr);

  const Date at = now();
  holds.update([&](std::vector<Hold>& all) {
    std::erase_if(all, [&](const Hold& hold) {
      if (hold.until && *hold.until < at) return true;
      if (!hold.pid) return false;
      const auto start = machine_.processes.startTime(*hold.pid);
      return !start || start != hold.pidStart;
    });
  });
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

// Files that a process left half-written as it was killed, and replies that nobody fetched.
void Engine::sweepLeftovers() {
  constexpr double kReplyKept = 3600;  // seconds; whoever asked has long given up
  for (const std::string& folder : {state_.dir(), state_.path("replies")}) {
    for (const std::string& name : machine_.files.list(folder).value_or(std::vector<std::string>{})) {
      const std::string path = folder + "/" + name;
      const auto mark = name.rfind(".tmp");
      const auto writer = mark == std::string::npos ? std::nullopt : text::decimal<Pid>(name.substr(mark + 4));
      bool left = writer && !machine_.processes.exists(*writer);
      if (folder != state_.dir() && name.ends_with(".json")) {
        const auto status = machine_.files.status(path);
        left = status && std::abs(secondsBetween(status->modified, now())) > kReplyKept;
      }
      if (left) machine_.files.remove(path);
    }
  }
}

void Engine::configFileChanged() {
  const auto text = state_.read("config.json");
  auto edited = text ? Config::decode(*text) : std::nullopt;
  if (!edited) return;
  if (*edited == config) return enforceSafety();  // the record may have been lost
  // Taken as it will stand, lest what it loosens count for a moment: that would unlatch the battery limit.
  const Config asWritten = *edited;
  if (!previewOnly_) {
    if (const auto accepted = Safety::load(state_)) accepted->tighten(edited->heatGuard, edited->batteryFloor);
  }
  apply(*edited, false);
  config.update([&](Config& taken) {
    taken.heatGuard = asWritten.heatGuard;
    taken.batteryFloor = asWritten.batteryFloor;
  });
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
  if (corrected.batteryFloor < accepted->batteryFloor && !without(Guard::safetyAccepted)) {
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
