#include "engine/PowerTest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "core/Config.h"

namespace tovi::PowerTest {

namespace {

constexpr int kMostAttempts = 149;  // of a second each: five updates of an ordinary controller

// Two differences agree if they are no further apart than the larger of these.
constexpr double kSlackWatts = 0.6;
constexpr double kSlackShare = 0.35;  // of the greater difference

struct Saving {
  std::string_view key;
  const char* name;
  bool (*on)(const Config& config, bool screenOff);
};

bool mayTouch(const Config& config) { return config.preset != Preset::speed; }

constexpr Saving kTable[] = {
    {"apps", "other apps", [](const Config& config, bool) { return mayTouch(config); }},
    {"simulators", "simulators", [](const Config& config, bool) { return config.pauseSimulators && mayTouch(config); }},
    {"audio", "background audio",
     [](const Config& config, bool) { return config.pauseBackgroundAudio && mayTouch(config); }},
    {"low_power", "Low Power Mode",
     [](const Config& config, bool) { return config.lowPowerWhileClosed && mayTouch(config); }},
    {"screen_off", "screen off", [](const Config&, bool screenOff) { return screenOff; }},
    {"screen", "screen off (locks)", [](const Config& config, bool) { return config.lockOnClose; }},
};
static_assert(std::ranges::equal(kTable, kSavings, {}, &Saving::key));

const Saving* find(std::string_view key) {
  const auto at = std::ranges::find(kTable, key, &Saving::key);
  return at == std::end(kTable) ? nullptr : &*at;
}

}  // namespace

std::vector<std::string> keysFor(const Choice& choice) {
  std::vector<std::string> keys;
  for (const std::string_view key : kSavings) {
    if (key == "screen_off") {
      const bool wouldLock = choice.passwordDelay == 0 && !choice.screenOffNoLock;
      if (!choice.canSwitchScreen || choice.lockOnClose || wouldLock) continue;
    }
    if (key == "screen" && (!choice.includeScreen || choice.lockOnClose)) continue;
    keys.emplace_back(key);
  }
  return keys;
}

std::string stepName(std::string_view key) {
  const Saving* saving = find(key);
  return saving != nullptr ? saving->name : std::string{key};
}

bool savingOn(std::string_view key, const Config& config, bool screenOff) {
  const Saving* saving = find(key);
  return saving != nullptr && saving->on(config, screenOff);
}

int stepCount(std::size_t savings) { return kTotalSteps + kStepsPerSaving * static_cast<int>(savings); }

std::string totalProgress(int step, int steps) { return fmt::format("Measuring, {} of {}", step, steps); }

std::string detailProgress(std::string_view key, int step, int steps) {
  return fmt::format("Measuring {}, {} of {}", stepName(key), step, steps);
}

Total totalOf(const std::array<double, kTotalSteps>& readings) {
  const auto [off1, on1, off2, on2] = readings;
  Total total{(off1 + off2) * 0.5, (on1 + on2) * 0.5, std::nullopt};
  const double first = off1 - on1;
  const double second = off2 - on2;
  const double slack = std::max(kSlackWatts, kSlackShare * std::max(std::abs(first), std::abs(second)));
  if (std::abs(first - second) <= slack) total.saving = std::max(std::min(first, second), 0.0);
  return total;
}

double savingOf(double off, double on) { return std::max(off - on, 0.0); }

Reading::Verdict Reading::take(const std::optional<PowerSample>& sample) {
  if (++attempts_ > kMostAttempts || !sample || !sample->count) return {true, std::nullopt};
  if (!first_) {
    if (startCount_ != sample->count) first_ = sample;
    return {};
  }
  if (first_->count == sample->count) return {};
  const auto mean = meanWatts(*first_, *sample);
  return {true, mean ? mean : sample->watts};
}

}  // namespace tovi::PowerTest
