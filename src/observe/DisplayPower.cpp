#include "observe/DisplayPower.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/Guard.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "platform/Displays.h"
#include "platform/Machine.h"

namespace tovi {

namespace {

constexpr char kDisplayOff[] = "display-off";
constexpr char kBrightnessRestore[] = "brightness-restore";

// The window server's codes. For a display that it doesn't have there is nothing to switch, either way.
constexpr int kDone = 0;
constexpr int kCannotBegin = 1000;
constexpr int kNoSuchDisplay = 1001;
constexpr int kNoSwitch = 1006;

constexpr float kReadableBrightness = 0.5F;  // when the person's own value is lost
constexpr float kAsGoodAsDark = 0.02F;

// With the lid shut or the panel off it may be missing from the list.
std::optional<std::uint32_t> builtIn(const Machine& machine) {
  for (const Display& display : machine.displays.online()) {
    if (display.builtIn) return display.id;
  }
  return std::nullopt;
}

int switchInTransaction(const Machine& machine, std::uint32_t display, bool enabled) {
  const int code = machine.displays.setEnabled(display, enabled);
  if (code != kDone) {
    machine.displays.cancelConfiguration();
    return code;
  }
  return machine.displays.completeConfiguration();
}

int turnOn(const Machine& machine, std::uint32_t display) {
  Displays& displays = machine.displays;
  if (!displays.canSwitch()) return kNoSwitch;
  // An empty transaction first: it makes the window server look for displays again, without which a panel that
  // was switched off stays unknown to it.
  if (displays.beginConfiguration()) displays.completeConfiguration();
  if (!displays.beginConfiguration()) return kCannotBegin;
  return switchInTransaction(machine, display, true);
}

bool succeeded(int code) { return code == kDone || code == kNoSuchDisplay; }

}  // namespace

bool DisplayPower::canSwitch(const Machine& machine) { return machine.displays.canSwitch(); }

bool DisplayPower::turnOffBuiltIn(const Machine& machine, const StateFiles& state) {
  const auto display = builtIn(machine);
  if (!canSwitch(machine) || !display) return false;
  // A file from an earlier switch-off that still waits to be undone must survive a failure of this one.
  const bool alreadyOff = state.exists(kDisplayOff);
  const std::string path = state.path(kDisplayOff);
  // Without a record nobody would know that the screen has to come back.
  if (!state.writeDurably(fmt::format("{}", *display), path) && !state.exists(kDisplayOff)) return false;
  const bool off =
      machine.displays.beginConfiguration() && succeeded(switchInTransaction(machine, *display, /*enabled=*/false));
  if (!off && !alreadyOff) state.remove(path);
  return off;
}

bool DisplayPower::restoreBuiltIn(const Machine& machine, const StateFiles& state) {
  if (!state.exists(kDisplayOff)) return true;
  auto display = builtIn(machine);
  if (!display) display = text::decimal<std::uint32_t>(text::trimmed(state.read(kDisplayOff).value_or("")));
  if (!display || !succeeded(turnOn(machine, *display))) return false;
  state.remove(state.path(kDisplayOff));
  return true;
}

bool DisplayPower::sessionLocked(const Machine& machine) { return machine.displays.sessionLocked(); }

std::optional<float> Brightness::get(const Machine& machine) {
  const auto display = builtIn(machine);
  const auto value = display ? machine.displays.brightness(*display) : std::nullopt;
  if (!value || !(*value >= 0)) return std::nullopt;
  return value;
}

void Brightness::dimForClosedLid(const Machine& machine, const StateFiles& state) {
  const auto display = builtIn(machine);
  if (!display || !machine.displays.canSetBrightness()) return;
  const std::string path = state.path(kBrightnessRestore);
  if (state.exists(kBrightnessRestore) && !without(Guard::brightnessOfThePerson)) {
    // Once dimmed, what the panel reports is our own zero; the person's value is the one in the file.
    machine.displays.setBrightness(*display, 0);
    return;
  }
  const auto brightness = get(machine);
  if (!brightness) return;
  const bool recorded = state.writeDurably(fmt::format("{}", *brightness), path);
  if (!recorded || machine.displays.setBrightness(*display, 0) != kDone) state.remove(path);
}

void Brightness::restore(const Machine& machine, const StateFiles& state) {
  const auto content = state.read(kBrightnessRestore);
  if (!content) return;
  float value = text::decimal<float>(text::trimmed(*content)).value_or(kReadableBrightness);
  if (!(value > kAsGoodAsDark)) value = kReadableBrightness;  // NaN too
  const auto display = builtIn(machine);
  if (!display || !machine.displays.canSetBrightness()) return;
  if (machine.displays.setBrightness(*display, std::clamp(value, 0.0F, 1.0F)) == kDone) {
    state.remove(state.path(kBrightnessRestore));
  }
}

std::optional<int> LockSetting::gracePeriod(const Machine& machine) { return machine.displays.passwordDelay(); }

bool externalDisplayConnected(const Machine& machine) {
  return std::ranges::any_of(machine.displays.online(), [](const Display& display) { return !display.builtIn; });
}

}  // namespace tovi
