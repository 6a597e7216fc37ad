#include "platform/simulated/LaptopDisplays.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "platform/simulated/LaptopStore.h"

namespace tovi {

namespace {

// The double that people would write for this float: 0.8, not 0.800000011920929.
double asWritten(float value) {
  const std::string text = fmt::format("{}", value);
  double result = 0;
  std::from_chars(text.data(), text.data() + text.size(), result);
  return result;
}

const Display* find(const LaptopReport& report, std::uint32_t id) {
  const auto at = std::find_if(report.displays.begin(), report.displays.end(),
                               [&](const Display& display) { return display.id == id; });
  return at == report.displays.end() ? nullptr : &*at;
}

}  // namespace

std::vector<Display> LaptopDisplays::online() {
  const auto report = store_.report();
  const auto switches = store_.switches();
  std::vector<Display> found;
  for (const Display& display : report->displays) {
    if (switches->display(display.id).enabled) found.push_back(display);
  }
  return found;
}

bool LaptopDisplays::beginConfiguration() {
  if (staged_) return false;
  staged_.emplace();
  return true;
}

int LaptopDisplays::setEnabled(std::uint32_t display, bool enabled) {
  if (!staged_) return kFailure;
  const auto report = store_.report();
  if (report->refuses(fmt::format("display {} {}", display, enabled ? "on" : "off"))) return kFailure;
  if (find(*report, display) == nullptr) return kNoSuchDisplay;
  (*staged_)[display] = enabled;
  return 0;
}

int LaptopDisplays::completeConfiguration() {
  if (!staged_) return kFailure;
  const auto staged = std::exchange(staged_, std::nullopt);
  if (staged->empty()) return 0;
  std::string what;
  for (const auto& [display, enabled] : *staged) {
    what += fmt::format("{}display {} {}", what.empty() ? "" : ", ", display, enabled ? "on" : "off");
  }
  const bool changed = store_.change(what, [&](LaptopReport&, LaptopSwitches& switches, const auto&) {
    for (const auto& [display, enabled] : *staged) {
      if (switches.display(display).enabled != enabled) switches.displays[display].enabled = enabled;
    }
  });
  return changed ? 0 : kFailure;
}

void LaptopDisplays::cancelConfiguration() { staged_.reset(); }

bool LaptopDisplays::isLitBuiltIn(std::uint32_t display) {
  const auto report = store_.report();
  const Display* found = find(*report, display);
  return found != nullptr && found->builtIn && store_.switches()->display(display).enabled;
}

std::optional<float> LaptopDisplays::brightness(std::uint32_t display) {
  if (!isLitBuiltIn(display)) return std::nullopt;
  return static_cast<float>(store_.switches()->display(display).brightness);
}

int LaptopDisplays::setBrightness(std::uint32_t display, float value) {
  if (!isLitBuiltIn(display) || !(value >= 0.0f)) return kFailure;  // not a number isn't one either
  const double wanted = asWritten(std::min(value, 1.0f));
  const std::string what = fmt::format("brightness {} {}", display, wanted);
  if (store_.report()->refuses(what)) return kFailure;
  const bool changed = store_.change(what, [&](LaptopReport&, LaptopSwitches& switches, const auto&) {
    if (switches.display(display).brightness != wanted) switches.displays[display].brightness = wanted;
  });
  return changed ? 0 : kFailure;
}

bool LaptopDisplays::sessionLocked() { return store_.report()->locked; }

std::optional<int> LaptopDisplays::passwordDelay() { return store_.report()->gracePeriod; }

}  // namespace tovi
