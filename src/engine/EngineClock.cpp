// The wall clock can be set while we look away. What the engine remembers are moments of it, and what it decides by
// are the spans since: so when the clock has been set, every moment that is remembered is moved along.

#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Guard.h"
#include "core/Json.h"
#include "engine/Engine.h"
#include "platform/Clock.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

// A correction bit by bit never makes as much from one look to the next.
constexpr double kStep = 1.0;  // seconds

void move(Date& moment, double by) { moment = moment + by; }
void move(Sighting& sighting, double by) { move(sighting.at, by); }

template <class Moment>
void move(std::optional<Moment>& moment, double by) {
  if (moment) move(*moment, by);
}

void move(Receipt& receipt, double by) {
  move(receipt.closedAt, by);
  move(receipt.openedAt, by);
  move(receipt.sleepRequestedAt, by);
  move(receipt.sleptAt, by);
}

}  // namespace

void Engine::followClock() {
  const double ahead = unixSeconds(machine_.clock.now()) - machine_.clock.sinceBoot().count();
  const double by = clockAhead_ ? ahead - *clockAhead_ : 0;
  clockAhead_ = ahead;
  if (std::abs(by) < kStep || without(Guard::clockFollowed)) return;

  watcher_.moveDates(by);
  sessions = watcher_.sessions();
  blockers = watcher_.blockers();
  move(lastWork, by);
  move(lastSeen, by);
  move(bootTime_, by);
  move(hotSince, by);
  move(holdFailedAt, by);
  move(adoptedHoldUntil, by);
  move(lastSavingSample, by);
  if (sleepInfo) move(sleepInfo->first, by);
  for (auto& [id, since] : workingSince) move(since, by);
  for (auto& [id, stretch] : idlePending) {
    move(stretch.first, by);
    move(stretch.second, by);
  }
  if (receipt.get()) receipt.update([&](std::optional<Receipt>& record) { move(*record, by); });
  if (nextWakeAt.get()) nextWakeAt.update([&](std::optional<Date>& at) { move(at, by); });
  moveRequests(by);
}

// What the person asked for has so much longer to go as it had before. A wake at a time of day stays at that time.
void Engine::moveRequests(double by) {
  if (!holds->empty()) {
    holds.update([&](std::vector<Hold>& all) {
      for (Hold& hold : all) {
        move(hold.until, by);
        move(hold.created, by);
      }
    });
  }
  saveRuntime();
  if (!config->alwaysUntil || previewOnly_) return;
  config.update([&](Config& next) { next.alwaysUntil = *next.alwaysUntil + by; });
  state_.writeAtomically(config->encoded(), Config::path(state_));
}

// It may have been set while nobody ran, too. `record`: the clock as it stood when the requests were saved; null if
// that isn't known.
void Engine::settleClock(const nlohmann::json* record) {
  const auto boot = record != nullptr ? json::numberAt(*record, "boot") : std::nullopt;
  const auto offset = record != nullptr ? json::numberAt(*record, "offset") : std::nullopt;
  constexpr double kSameBoot = 2;  // seconds
  if (boot && offset && std::abs(*boot - bootMark()) < kSameBoot) {
    if (const double by = clockOffset() - *offset; std::abs(by) >= kStep) moveRequests(by);
    return;
  }
  // Another boot, whose clock can't be compared with this one; but if it is behind, nobody knows how much of what was
  // asked for is left. What was asked for in the future wasn't.
  const Date at = now();
  const auto saved = record != nullptr ? json::numberAt(*record, "at") : std::nullopt;
  const bool isBehind = saved && unixSeconds(at) < *saved - kStep;
  holds.update([&](std::vector<Hold>& all) {
    if (isBehind) std::erase_if(all, [](const Hold& hold) { return hold.until.has_value(); });
    for (Hold& hold : all) {
      const double early = secondsBetween(at, hold.created);
      if (early <= 0) continue;
      move(hold.until, -early);
      hold.created = at;
    }
  });
  saveRuntime();
}

// How far the wall clock is ahead of the one that never steps, as it is in this boot, in seconds.
double Engine::clockOffset() const {
  return unixSeconds(machine_.clock.now()) - static_cast<double>(machine_.processes.now()) / 1e6;
}

// Which boot this is: the same figure in every process, whatever the wall clock says.
double Engine::bootMark() const {
  return std::round(static_cast<double>(machine_.processes.now()) / 1e6 - machine_.clock.sinceBoot().count());
}

}  // namespace tovi
