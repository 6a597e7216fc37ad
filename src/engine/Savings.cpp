// What the closed-lid regime saves right now, from what the slowed applications used to draw.

#include <algorithm>

#include "engine/Engine.h"
#include "platform/Clock.h"

namespace tovi {

namespace {
constexpr double kBaselineShare = 0.3;  // weight of a new figure in an application's usual draw
}

void Engine::updateBaseline() {
  for (const AppUsage& app : *apps) {
    if (targeted->contains(app.id) || !app.id.ends_with(".app")) continue;
    const auto [usual, first] = baseline.try_emplace(app.id, app.watts);
    if (!first) usual->second = kBaselineShare * app.watts + (1 - kBaselineShare) * usual->second;
  }
}

void Engine::accumulateSavings() {
  double saving = 0;
  const auto measured = powerEffects->find("total");
  if (measured != powerEffects->end() && (!targeted->empty() || lowPowerSet())) {
    saving = measured->second;  // a measurement outranks the estimate
  } else {
    for (const AppUsage& app : *apps) {
      if (!targeted->contains(app.id)) continue;
      if (const auto usual = baseline.find(app.id); usual != baseline.end()) saving += usual->second - app.watts;
    }
  }
  const Date at = now();
  if (lastSavingSample) sessionWh = sessionWh + saving * secondsBetween(*lastSavingSample, at) / 3600;
  lastSavingSample = at;
  liveSavingW = saving;
}

}  // namespace tovi
