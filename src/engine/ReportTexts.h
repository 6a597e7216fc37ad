// The one wording of the machine's state, for every surface, and the estimates it rests on: plain functions of what
// is known at one moment.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "core/Config.h"
#include "observe/AgentSession.h"
#include "observe/Sensors.h"
#include "savings/Receipt.h"
#include "savings/SavingsStats.h"

namespace tovi {

struct ReportReadings {
  Date now;
  Config config;
  bool setupReady = true;
  bool hasLid = true;
  bool lidClosed = false;
  bool holding = false;
  bool agentWorking = false;
  std::optional<std::string> holdReason;
  std::optional<std::string> blockedReason;
  std::optional<BatteryReading> battery;
  std::optional<double> systemWatts;
  std::optional<double> openDraw;    // usual watts with the lid open
  std::optional<double> closedDraw;  // and closed
  double appWattsClosed = 0;         // what the applications would draw once treated by their rules
  double fullWh = 70;                // of the full battery
};

// What closing the lid would do now.
struct LidOutcome {
  bool keeps = false;  // the machine goes on working
  std::string headline;
  std::string detail;

  friend bool operator==(const LidOutcome&, const LidOutcome&) = default;
};

// What closing the lid would do to one application.
struct ClosedPlanRow {
  std::string name;
  AppRule rule = AppRule::leave;
  std::string words;

  friend bool operator==(const ClosedPlanRow&, const ClosedPlanRow&) = default;
};

// The last seven days; all figures are cut.
struct WeekSummary {
  int count = 0;
  std::int64_t hours = 0;    // awake with the lid closed
  std::int64_t wh = 0;       // saved and avoided together
  std::int64_t percent = 0;  // of one full battery

  friend bool operator==(const WeekSummary&, const WeekSummary&) = default;
};

namespace reports {

// Estimates.
std::optional<Date> onUntil(const Config& config);                   // the end of a timed Always
std::optional<double> presentWatts(const ReportReadings& readings);  // measured, or by the battery's discharge
std::optional<double> openWatts(const ReportReadings& readings);
double closedEstimate(const ReportReadings& readings);
// Down to the battery limit, where the machine will stop; absent without a battery or a draw that means something.
std::optional<double> hoursLeft(const ReportReadings& readings, std::optional<double> watts);
double alwaysLeft(const ReportReadings& readings);  // seconds; 0 without an end
std::optional<double> sleepsIn(const AgentSession& session, const Config& config, Date now);  // seconds

// The share of its draw that an application keeps under a rule.
double shareKept(AppRule rule);

// Words.
std::string statusLine(const ReportReadings& readings);
std::string modeLine(const ReportReadings& readings);
std::optional<std::string> batteryLine(const ReportReadings& readings);
LidOutcome lidOutcome(const ReportReadings& readings);
std::optional<std::string> menuBarTitle(const ReportReadings& readings);
std::string closedPlanWords(AppRule rule, bool isProtected);

// A session with the lid closed.
std::string receiptLine(const Receipt& receipt, Date now);
std::optional<Receipt> recentReceipt(const std::optional<Receipt>& receipt, Date now);  // opened within half an hour
std::optional<WeekSummary> weekSummary(const SavingsStats::Week& week, double fullWh);  // absent: no session

// For the phone's page, by key.
std::map<std::string, std::string> phoneFigures(const ReportReadings& readings, const std::optional<WeekSummary>& week);

// What the phone shows beneath the percentage.
std::optional<std::string> batteryDetail(const ReportReadings& readings);

}  // namespace reports
}  // namespace tovi
