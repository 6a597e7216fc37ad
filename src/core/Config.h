// A person's wishes, and the one file they are kept in: config.json, which may be edited by hand at any time.
// Reading is forgiving key by key; writing always writes the whole.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Modes.h"

namespace tovi {

class Clock;
class StateFiles;

// An application (id: the path of its bundle) or a bare tool (id and name: what the person typed).
struct WatchedApp {
  std::string id;
  std::string name;

  friend bool operator==(const WatchedApp&, const WatchedApp&) = default;
};

struct CustomAgent {
  std::string name;
  std::vector<std::string> executables;
  std::optional<double> idleWatts;

  friend bool operator==(const CustomAgent&, const CustomAgent&) = default;
};

struct Config {
  static constexpr int kMostBatteryFloor = 80;  // percent

  Mode mode = Mode::automatic;
  Preset preset = Preset::balanced;
  bool lowPowerWhileClosed = true;
  bool sleepWhenDone = true;
  int quietMinutes = 5;   // 1...240
  int batteryFloor = 15;  // percent, 0...80; 0: never stop for battery
  bool heatGuard = true;
  bool onlyOnPower = false;
  bool countClaudeApp = true;
  bool countRequests = true;
  std::vector<WatchedApp> watchedApps;
  std::map<std::string, AppRule> appRules;  // by bundle identifier
  std::vector<CustomAgent> customAgents;
  MenuBarText menuBarText = MenuBarText::none;
  bool notchIsland = false;
  bool showInDock = false;
  bool hotkey = true;
  AppearanceChoice appearance = AppearanceChoice::system;
  bool notifyDone = true;
  bool doneChime = false;
  std::string chimeSound = "Glass";
  std::string ntfyTopic;  // at most 64 characters; empty: no phone alerts
  bool lockOnClose = false;
  bool pauseSimulators = true;
  bool pauseBackgroundAudio = true;
  bool screenOffNoLock = false;
  bool shutDownSimulators = false;
  std::vector<std::string> trackOnly;  // agents shown that don't keep the machine awake, by kind id
  bool liveLidIcon = true;
  std::optional<double> alwaysUntil;     // seconds since 1970
  std::optional<Mode> modeBeforeAlways;  // off or auto
  int checkInMinutes = 0;                // 0, 15, 30 or 60; 0: off
  std::optional<double> wakeAt;          // seconds since 1970
  int wakeForMinutes = 30;               // 5...1440
  bool slowBuildsWhileClosed = false;
  bool pauseTimeMachine = true;

  friend bool operator==(const Config&, const Config&) = default;

  // Absent only if the text is no JSON or its top level no object. A key that is missing, of the wrong type or
  // unknown in value keeps its default and costs nothing else.
  static std::optional<Config> decode(std::string_view text);

  // The bytes of the file: pretty-printed, keys sorted.
  std::string encoded() const;
  nlohmann::json toJson() const;

  // If config.json stands there and isn't a JSON object, copies it beside itself and returns the copy's name,
  // even where the copying failed.
  static std::optional<std::string> setAsideIfBroken(const StateFiles& state, Clock& clock);

  static std::string path(const StateFiles& state);
};

}  // namespace tovi
