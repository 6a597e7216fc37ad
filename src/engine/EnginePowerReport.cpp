// What the power report is made from.

#include <nlohmann/json.hpp>

#include "engine/Engine.h"
#include "engine/PowerReport.h"
#include "observe/DisplayPower.h"
#include "platform/Processes.h"

namespace tovi {

nlohmann::json Engine::powerReport() const {
  PowerReadings readings;
  readings.config = config;
  readings.lidClosed = lidClosed;
  readings.holding = holding;
  readings.screenOff = screenOff;
  readings.counted = powerCounted();
  readings.externalDisplay = externalDisplayConnected(machine_);
  readings.systemWatts = systemWatts;
  readings.openDraw = openDraw;
  readings.closedDraw = closedDraw;
  for (const AppUsage& app : *apps) readings.appsWatts += app.watts;
  for (const AppUsage& app : *apps) {
    if (app.watts <= reports::kBusyWatts || isProtected(app)) continue;
    readings.busy.push_back({app.name, app.watts, rule(app.bundleID, config->preset)});
  }
  const bool current = lidClosed && holding;  // looked for at every turn of the targets
  readings.background = current ? background.get() : BackgroundWork::scan(machine_, machine_.processes.table());
  readings.effects = powerEffects;
  readings.unclear = powerUnclear;
  readings.testRunning = powerTestRunning;
  readings.testProgress = powerTestProgress;
  readings.testAborted = powerTestAborted;
  return reports::powerReport(readings);
}

}  // namespace tovi
