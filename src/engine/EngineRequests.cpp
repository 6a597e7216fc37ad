// What a person or an agent can ask for directly. Each request changes state and lets the decision follow, so
// that it obeys the same safety rules as work that was merely seen.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "core/PanelFormat.h"
#include "engine/Engine.h"
#include "platform/Clock.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

constexpr int kMostMinutes = 7 * 24 * 60;
constexpr char kKeepsGoing[] = "Close the lid, it keeps going";

}  // namespace

Hold Engine::addHold(const std::string& reason, std::optional<double> minutes, std::optional<Pid> pid,
                     std::optional<Pid> owner) {
  followClock();
  Hold hold;
  hold.id = Hold::newId();
  hold.reason = reason;
  hold.created = now();
  if (minutes) hold.until = hold.created + *minutes * 60;
  hold.pid = pid;
  if (pid) hold.pidStart = machine_.processes.startTime(*pid);
  hold.owner = owner;
  if (owner) hold.ownerStart = machine_.processes.startTime(*owner);
  holds.update([&](std::vector<Hold>& all) { all.push_back(hold); });
  saveRuntime();
  evaluate();
  announce(reason, minutes ? "Staying awake for " + PanelFormat::duration(*minutes) : "Staying awake");
  return hold;
}

int Engine::releaseHold(const std::optional<std::string>& id) {
  const auto before = holds->size();
  holds.update(
      [&](std::vector<Hold>& all) { std::erase_if(all, [&](const Hold& hold) { return !id || hold.id == *id; }); });
  saveRuntime();
  evaluate();
  return static_cast<int>(before - holds->size());
}

int Engine::releaseHolds(Pid ownedBy, const std::optional<std::string>& id) {
  const auto before = holds->size();
  expireHolds();  // those of an earlier process with this number are none of its own
  holds.update([&](std::vector<Hold>& all) {
    std::erase_if(all, [&](const Hold& hold) {
      return (hold.owner == ownedBy || hold.pid == ownedBy) && (!id || hold.id == *id);
    });
  });
  saveRuntime();
  evaluate();
  return static_cast<int>(before - holds->size());
}

void Engine::stayAwake(std::optional<int> minutes) {
  followClock();
  Config next = config;
  if (next.mode != Mode::on) next.modeBeforeAlways = next.mode;
  next.mode = Mode::on;
  std::string title = "Always awake";
  if (minutes) {
    next.alwaysUntil = unixSeconds(now()) + std::min(*minutes, kMostMinutes) * 60.0;
    title = "Awake for " + PanelFormat::duration(*minutes);
  } else {
    next.alwaysUntil.reset();
  }
  apply(std::move(next), true);
  evaluate();
  announce(title, kKeepsGoing);
}

void Engine::stayAwake(Date until) {
  const double minutes = std::trunc(secondsBetween(now(), until) / 60);
  stayAwake(static_cast<int>(std::clamp(minutes, 1.0, 1e9)));
}

void Engine::sleepNow() {
  holds.clear();
  saveRuntime();
  if (config->mode == Mode::on) {
    Config next = config;
    next.mode = next.modeBeforeAlways.value_or(Mode::automatic);
    apply(std::move(next), true);
  }
  snoozed = true;
  evaluate();
  // With the lid closed the end of the hold has asked for sleep already.
  if (!lidClosed && !holding && !previewOnly_) shell().pmsetRoot({"sleepnow"});
}

void Engine::overrideFloor(bool flag) {
  floorOverride = flag;
  if (flag) floorLatched = false;
  evaluate();
}

void Engine::setKeepsAwake(const std::string& kindId, bool flag) {
  Config next = config;
  std::erase(next.trackOnly, kindId);
  if (!flag) next.trackOnly.push_back(kindId);
  apply(std::move(next), true);
}

void Engine::addWatched(const WatchedApp& app) {
  const auto& watched = config->watchedApps;
  if (std::find(watched.begin(), watched.end(), app) != watched.end()) return;
  Config next = config;
  next.watchedApps.push_back(app);
  apply(std::move(next), true);
}

void Engine::removeWatched(const WatchedApp& app) {
  Config next = config;
  std::erase(next.watchedApps, app);
  apply(std::move(next), true);
}

void Engine::setRule(AppRule rule, const std::string& bundle) {
  Config next = config;
  next.appRules[bundle] = rule;
  apply(std::move(next), true);
}

void Engine::setPreset(Preset preset) {
  Config next = config;
  next.preset = preset;
  apply(std::move(next), true);
}

void Engine::setWake(std::optional<Date> at, std::optional<int> forMinutes) {
  Config next = config;
  next.wakeAt = at ? std::optional{unixSeconds(*at)} : std::nullopt;
  if (forMinutes) next.wakeForMinutes = std::clamp(*forMinutes, 5, 1440);
  apply(std::move(next), true);
}

void Engine::setCheckIn(int minutes) {
  if (minutes != 0 && minutes != 15 && minutes != 30 && minutes != 60) return;
  Config next = config;
  next.checkInMinutes = minutes;
  apply(std::move(next), true);
}

}  // namespace tovi
