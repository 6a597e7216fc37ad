// The state in words and figures, one wording for every surface: reads what is known now and asks the reports.

#include <algorithm>

#include "core/Text.h"
#include "engine/Engine.h"
#include "engine/ReportTexts.h"
#include "platform/Clock.h"

namespace tovi {

ReportReadings Engine::reportReadings() const {
  ReportReadings readings;
  readings.now = now();
  readings.config = config;
  readings.setupReady = setupReady;
  readings.hasLid = Registry::hasLid(machine_);
  readings.lidClosed = lidClosed;
  readings.holding = holding;
  readings.agentWorking = std::ranges::any_of(*sessions, [&](const AgentSession& session) {
    return !session.kind.isRequest() && secondsBetween(session.lastActive, readings.now) < kWorkingSeconds;
  });
  readings.holdReason = holdReason;
  readings.blockedReason = blockedReason;
  readings.battery = battery;
  readings.systemWatts = systemWatts;
  readings.openDraw = openDraw;
  readings.closedDraw = closedDraw;
  for (const AppUsage& app : *apps) {
    if (app.system) continue;
    const AppRule applies = isProtected(app) ? AppRule::leave : rule(app.bundleID, config->preset);
    readings.appWattsClosed += app.watts * reports::shareKept(applies);
  }
  readings.fullWh = fullWh;
  return readings;
}

std::string Engine::statusLine() const { return reports::statusLine(reportReadings()); }
std::string Engine::modeLine() const { return reports::modeLine(reportReadings()); }
std::optional<std::string> Engine::batteryLine() const { return reports::batteryLine(reportReadings()); }
LidOutcome Engine::lidOutcome() const { return reports::lidOutcome(reportReadings()); }
std::optional<double> Engine::openWatts() const { return reports::openWatts(reportReadings()); }
double Engine::closedEstimate() const { return reports::closedEstimate(reportReadings()); }
double Engine::alwaysLeft() const { return reports::alwaysLeft(reportReadings()); }
std::optional<std::string> Engine::menuBarTitle() const { return reports::menuBarTitle(reportReadings()); }

std::optional<double> Engine::hoursLeft(std::optional<double> watts) const {
  return reports::hoursLeft(reportReadings(), watts);
}

std::optional<double> Engine::sleepsIn(const AgentSession& session) const {
  return reports::sleepsIn(session, config, now());
}

std::string Engine::receiptLine(const Receipt& record) const { return reports::receiptLine(record, now()); }

std::optional<Receipt> Engine::recentReceipt() const { return reports::recentReceipt(receipt, now()); }

std::optional<WeekSummary> Engine::weekSummary() const { return reports::weekSummary(stats->week(now()), fullWh); }

std::map<std::string, std::string> Engine::phoneFigures() const {
  return reports::phoneFigures(reportReadings(), weekSummary());
}

std::vector<ClosedPlanRow> Engine::closedPlan() const {
  std::vector<ClosedPlanRow> rows;
  for (const AppUsage& app : userApps()) {
    const bool kept = isProtected(app);
    const AppRule applies = kept ? AppRule::leave : rule(app.bundleID, config->preset);
    rows.push_back({app.name, applies, reports::closedPlanWords(applies, kept)});
  }
  return rows;
}

std::vector<std::string> Engine::unrestored() const {
  std::vector<std::string> names;
  if (lidClosed && holding) return names;
  for (const Touched& entry : *touched) names.emplace_back(text::lastPathComponent(entry.path));
  return names;
}

}  // namespace tovi
