#include "observe/SystemSwitches.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "core/Shell.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "platform/Machine.h"
#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr char kPowerModeRestore[] = "powermode-restore";
constexpr char kTimeMachineRestore[] = "timemachine-restore";
constexpr char kTmutil[] = "/usr/bin/tmutil";

bool tmutil(const Machine& machine, const std::string& verb) {
  return Shell(machine.commands).run("/usr/bin/sudo", {"-n", kTmutil, verb}).code == 0;
}

bool setForBattery(const Machine& machine, const std::string& key, const std::string& value) {
  return Shell(machine.commands).pmsetRoot({"-b", key, value});
}

}  // namespace

std::optional<PowerMode::Setting> PowerMode::parseBattery(std::string_view customSettings) {
  bool forBattery = false;
  for (std::string_view line : text::pieces(customSettings, "\n\r")) {
    line = text::trimmed(line);
    if (line.ends_with("Power:")) {
      forBattery = line.starts_with("Battery");
      continue;
    }
    if (!forBattery) continue;
    const auto parts = text::pieces(line, " \t");
    if (parts.size() < 2 || (parts[0] != "powermode" && parts[0] != "lowpowermode")) continue;
    if (const auto value = text::decimal<int>(parts[1])) return Setting{std::string{parts[0]}, *value};
  }
  return std::nullopt;
}

std::optional<PowerMode::Setting> PowerMode::battery(const Machine& machine) {
  return parseBattery(Shell(machine.commands).run("/usr/bin/pmset", {"-g", "custom"}).out);
}

bool PowerMode::lowSet(const StateFiles& state) { return state.exists(kPowerModeRestore); }

void PowerMode::setLow(const Machine& machine, const StateFiles& state) {
  // A file that is there already holds the person's own value, which what the system now reports no longer is.
  if (lowSet(state)) return;
  const auto setting = battery(machine);
  if (!setting || setting->value == 1) return;
  const std::string path = state.path(kPowerModeRestore);
  // A write that failed may have left the file all the same, when only the folder couldn't be synchronised.
  const bool recorded = state.writeDurably(fmt::format("{} {}", setting->key, setting->value), path);
  if (!recorded || !setForBattery(machine, setting->key, "1")) state.remove(path);
}

bool PowerMode::restore(const Machine& machine, const StateFiles& state) {
  const auto content = state.read(kPowerModeRestore);
  if (!content || !isUtf8(*content)) return true;
  const auto parts = text::pieces(*content, " ");
  if (parts.size() == 2 && !setForBattery(machine, std::string{parts[0]}, std::string{parts[1]})) return false;
  state.remove(state.path(kPowerModeRestore));
  return true;
}

bool TimeMachine::paused(const StateFiles& state) { return state.exists(kTimeMachineRestore); }

bool TimeMachine::autoBackupOn(const Machine& machine) {
  const auto result =
      Shell(machine.commands)
          .run("/usr/bin/defaults", {"read", "/Library/Preferences/com.apple.TimeMachine", "AutoBackup"});
  return text::trimmed(result.out) == "1";
}

void TimeMachine::pause(const Machine& machine, const StateFiles& state) {
  if (paused(state) || !autoBackupOn(machine)) return;
  const std::string path = state.path(kTimeMachineRestore);
  const bool recorded = state.writeDurably("", path) && paused(state);
  if (!recorded || !tmutil(machine, "disable")) state.remove(path);
}

bool TimeMachine::resume(const Machine& machine, const StateFiles& state) {
  if (!paused(state)) return true;
  if (!tmutil(machine, "enable")) return false;
  state.remove(state.path(kTimeMachineRestore));
  return true;
}

bool BuildTools::contains(std::string_view executable) {
  static constexpr std::array<std::string_view, 25> kNames{"swift-frontend",
                                                           "swiftc",
                                                           "swift-build",
                                                           "swift-driver",
                                                           "clang",
                                                           "clang++",
                                                           "cc",
                                                           "c++",
                                                           "ld",
                                                           "ld64",
                                                           "lld",
                                                           "rustc",
                                                           "cargo",
                                                           "go",
                                                           "javac",
                                                           "kotlinc",
                                                           "xcodebuild",
                                                           "XCBBuildService",
                                                           "make",
                                                           "gmake",
                                                           "ninja",
                                                           "cmake",
                                                           "esbuild",
                                                           "gcc",
                                                           "g++"};
  return std::ranges::find(kNames, executable) != kNames.end();
}

}  // namespace tovi
