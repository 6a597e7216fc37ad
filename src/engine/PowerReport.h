// Where the watts go and what would cut them, item by item, each with the setting that would help.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/Config.h"
#include "observe/BackgroundWork.h"

namespace tovi {

struct PowerReadings {
  struct BusyApp {
    std::string name;
    double watts = 0;
    AppRule rule = AppRule::leave;
  };

  Config config;
  bool lidClosed = false;
  bool holding = false;
  bool screenOff = false;        // the built-in screen is switched off now
  bool counted = false;          // the power controller counts what the whole machine draws
  bool externalDisplay = false;  // one is connected
  std::optional<double> systemWatts;
  std::optional<double> openDraw;
  std::optional<double> closedDraw;
  double appsWatts = 0;       // of all applications and tools
  std::vector<BusyApp> busy;  // that closing the lid could treat; most watts first
  BackgroundWork::Found background;

  // The power test.
  std::map<std::string, double> effects;
  std::set<std::string> unclear;
  bool testRunning = false;
  std::optional<std::string> testProgress;
  std::optional<std::string> testAborted;
};

namespace reports {

// Above this an application counts as busy.
constexpr double kBusyWatts = 0.2;

nlohmann::json powerReport(const PowerReadings& readings);

// "Measuring, 1 of 4", "aborted: ...", "done" or "not run yet".
std::string powerTestState(const PowerReadings& readings);

}  // namespace reports
}  // namespace tovi
