// The quick estimate: what the apps' own energy counters say before and after they are slowed, over seconds, with the
// lid open. The power test measures the whole machine instead.

#include <algorithm>

#include "engine/Engine.h"
#include "platform/Clock.h"

namespace tovi {

namespace {

constexpr Seconds kBefore{3.0};
constexpr Seconds kAfter{4.0};  // longer, since what was slowed first has to come to rest

SavingsTest compare(const std::vector<AppUsage>& before, const std::vector<AppUsage>& after,
                    const std::map<std::string, AppRule>& targeted, Date date) {
  const auto find = [](const std::vector<AppUsage>& usage, const std::string& id) {
    const auto at = std::ranges::find(usage, id, &AppUsage::id);
    return at == usage.end() ? nullptr : &*at;
  };
  SavingsTest test;
  test.date = date;
  for (const auto& [id, rule] : targeted) {
    const AppUsage* first = find(before, id);
    const AppUsage* second = find(after, id);
    if (first != nullptr && second != nullptr) test.apps.push_back({first->name, first->watts, second->watts});
  }
  std::ranges::stable_sort(test.apps, std::ranges::greater{}, &SavingsTest::App::before);
  for (const SavingsTest::App& app : test.apps) {
    test.before += app.before;
    test.after += app.after;
  }
  return test;
}

}  // namespace

void Engine::measureSavings() {
  if (measuring || (lidClosed && holding)) return;
  measuring = true;
  const auto sampler = std::make_shared<EnergySampler>(machine_);
  sampler->sample();
  delayed_.after(kBefore, [this, sampler] {
    auto before = sampler->sample();
    if (powerTestRunning) {
      // The test says what is slowed, or its reading would be worth nothing.
    } else if (lidClosed && holding) {
      applyClosedTargets(std::nullopt, {});  // the lid was closed meanwhile: what it wants goes first
    } else {
      applyClosedTargets(config->preset, {"simulators", "audio"});
    }
    sampler->sample();
    delayed_.after(kAfter, [this, sampler, before = std::move(before), slowed = targeted.get()] {
      const auto after = sampler->sample();
      if (!(lidClosed && holding)) restoreApps();
      lastTest = compare(before, after, slowed, now());
      measuring = false;
    });
  });
}

}  // namespace tovi
