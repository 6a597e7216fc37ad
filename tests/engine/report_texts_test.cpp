// The wording of the state and the estimates behind it, row by row.

#include "engine/ReportTexts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "core/PanelFormat.h"

namespace tovi {
namespace {

const Date kNow = dateFromUnix(1'767'600'000);  // 2026-01-05 08:00 UTC

struct ReportTexts : testing::Test {
  ReportReadings readings;

  ReportTexts() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    readings.now = kNow;
  }

  ReportReadings in(Mode mode, std::optional<double> minutesLeft = {}) {
    ReportReadings changed = readings;
    changed.config.mode = mode;
    if (minutesLeft) changed.config.alwaysUntil = unixSeconds(kNow) + *minutesLeft * 60;
    return changed;
  }
  // Ten watts at 65 % above the limit of 15 %, of 70 Wh: 4 h 33 min.
  ReportReadings onBattery(double watts = 10) {
    ReportReadings changed = readings;
    changed.battery = BatteryReading{80, watts, false, false, {}};
    changed.closedDraw = 5;
    changed.systemWatts = watts > 0 ? std::optional{watts} : std::nullopt;
    return changed;
  }
  ReportReadings onCharger(bool charging, double watts = 0) {
    ReportReadings changed = onBattery(watts);
    changed.battery->onAC = true;
    changed.battery->charging = charging;
    return changed;
  }
};

TEST_F(ReportTexts, SpansAreCutToWholeMinutesAndFromTenHoursToHours) {
  const struct {
    double hours;
    const char* text;
  } cases[] = {{0, "0 min"},         {-1, "0 min"}, {0.999, "59 min"},          {1, "1 h"},
               {1.5, "1 h 30 min"},  {2, "2 h"},    {599.0 / 60, "9 h 59 min"}, {10, "10 h"},
               {600.9 / 60, "10 h"}, {10.4, "10 h"}};
  for (const auto& row : cases) {
    EXPECT_EQ(PanelFormat::hm(row.hours), row.text) << row.hours;
    EXPECT_EQ(PanelFormat::minutes(row.hours * 3600), row.text) << row.hours;
  }
}

TEST_F(ReportTexts, TheStatusLineTakesTheFirstReasonThatHolds) {
  auto blocked = in(Mode::on);
  blocked.blockedReason = "Battery at 10%";
  auto unready = blocked;
  unready.setupReady = false;
  auto held = in(Mode::off);
  held.holding = true;
  held.holdReason = "training";
  auto working = held;
  working.config.mode = Mode::automatic;
  auto wordless = working;
  wordless.holdReason.reset();
  auto wanted = working;
  wanted.holding = false;
  const struct {
    ReportReadings readings;
    const char* text;
  } cases[] = {
      {unready, "Needs a one-time setup"},
      {blocked, "Battery at 10%, sleeps when closed"},
      {held, "training · sleeps when closed"},
      {in(Mode::off), "Sleeps when you close the lid"},
      {working, "training · sleeps when closed"},
      {wordless, "Nothing running · sleeps when closed"},
      {wanted, "Nothing running · sleeps when closed"},
      {in(Mode::automatic), "Nothing running · sleeps when closed"},
      {in(Mode::on, 90), "Awake until 09:30 · 1 h 30 min left"},
      {in(Mode::on, -1), "Awake until 07:59 · 0 min left"},
      {in(Mode::on), "Awake until you turn it off"},
  };
  for (const auto& row : cases) EXPECT_EQ(reports::statusLine(row.readings), row.text);
}

TEST_F(ReportTexts, TheModeLineKnowsMachinesWithoutALid) {
  auto desktop = in(Mode::off);
  desktop.hasLid = false;
  EXPECT_EQ(reports::modeLine(in(Mode::off)), "Sleeps like normal when you close the lid.");
  EXPECT_EQ(reports::modeLine(desktop), "Sleeps like normal.");
  EXPECT_EQ(reports::modeLine(in(Mode::automatic)), "Stays awake while your AI agents work, then sleeps.");
  EXPECT_EQ(reports::modeLine(in(Mode::on, 30)), "Stays awake until 08:30.");
  EXPECT_EQ(reports::modeLine(in(Mode::on)), "Stays awake until you turn it off.");
}

TEST_F(ReportTexts, TheLidOutcomeSaysWhatClosingItDoes) {
  auto unready = in(Mode::automatic);
  unready.setupReady = false;
  unready.holding = true;
  auto blocked = in(Mode::on);
  blocked.blockedReason = "Too warm";
  blocked.holding = true;
  auto held = in(Mode::automatic);
  held.holding = true;
  auto told = held;
  told.holdReason = "Claude Code is working";
  const struct {
    ReportReadings readings;
    bool keeps;
    const char* detail;
  } cases[] = {
      {unready, false, "Tovi needs a one-time setup"},
      {blocked, false, "Too warm"},
      {held, true, "Staying awake"},
      {told, true, "Claude Code is working"},
      {in(Mode::off), false, "Tovi is off"},
      {in(Mode::automatic), false, "No agent is working right now"},
      {in(Mode::on), false, "Starting…"},
  };
  for (auto row : cases) {
    const char* headline = row.keeps ? "Close the lid: it keeps working" : "Close the lid: it sleeps";
    EXPECT_EQ(reports::lidOutcome(row.readings), (LidOutcome{row.keeps, headline, row.detail}));
    row.readings.hasLid = false;
    EXPECT_EQ(reports::lidOutcome(row.readings).headline, row.keeps ? "Stays awake" : "Sleeps normally");
  }
}

TEST_F(ReportTexts, TheBatteryLinesNeedABatteryAndALid) {
  auto desktop = onBattery();
  desktop.hasLid = false;
  auto unknown = onCharger(true);
  unknown.closedDraw = 0.1;  // too little to tell
  auto idle = unknown;
  idle.battery->charging = false;
  auto chargingDesktop = onCharger(true);
  chargingDesktop.hasLid = false;
  const struct {
    ReportReadings readings;
    std::optional<std::string> line, detail;
  } cases[] = {
      {readings, {}, {}},
      {onBattery(), "80% · about 9 h 6 min with the lid closed", "9 h 6 min left with the lid closed"},
      {onCharger(true), "80% · about 9 h 6 min with the lid closed", "charging (9 h 6 min on battery, lid closed)"},
      {onCharger(false), "80% · about 9 h 6 min with the lid closed", "plugged in (9 h 6 min on battery, lid closed)"},
      {desktop, "80%", {}},
      {unknown, "80% · charging", "charging"},
      {idle, "80%", "plugged in"},
      {chargingDesktop, "80% · charging", "charging"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(reports::batteryLine(row.readings), row.line);
    EXPECT_EQ(reports::batteryDetail(row.readings), row.detail);
  }
}

TEST_F(ReportTexts, HoursEndAtTheLimitAndNeedADrawThatMeansSomething) {
  auto state = onBattery();
  EXPECT_NEAR(reports::hoursLeft(state, 10).value(), 0.65 * 70 / 10, 1e-9);
  EXPECT_EQ(reports::hoursLeft(state, 0.1), std::nullopt);
  EXPECT_TRUE(reports::hoursLeft(state, 0.11));
  EXPECT_EQ(reports::hoursLeft(state, {}), std::nullopt);
  state.battery->percent = 14;
  EXPECT_EQ(reports::hoursLeft(state, 10), 0.0) << "below the limit";
  EXPECT_EQ(reports::hoursLeft(readings, 10), std::nullopt) << "no battery";
}

TEST_F(ReportTexts, EstimatesPreferWhatIsMeasuredAndNeverPromiseMoreThanIsDrawnNow) {
  auto state = readings;
  state.appWattsClosed = 3;
  EXPECT_DOUBLE_EQ(reports::closedEstimate(state), 4.6) << "the machine itself takes 1.6 W";
  state.closedDraw = 3;
  EXPECT_EQ(reports::closedEstimate(state), 3);
  state.systemWatts = 2;
  EXPECT_EQ(reports::closedEstimate(state), 2);
  state.systemWatts.reset();
  state.battery = BatteryReading{50, 2.5, false, false, {}};
  EXPECT_EQ(reports::closedEstimate(state), 2.5);
  state.battery->watts = 0.3;
  EXPECT_EQ(reports::closedEstimate(state), 3) << "0.3 W says nothing";
  state.systemWatts = 9;
  state.lidClosed = true;
  EXPECT_EQ(reports::closedEstimate(state), 3) << "closed, but about to sleep";
  state.holding = true;
  EXPECT_EQ(reports::closedEstimate(state), 9);

  EXPECT_EQ(reports::openWatts(state), std::nullopt);
  state.openDraw = 12;
  EXPECT_EQ(reports::openWatts(state), 12);
  state.lidClosed = false;
  EXPECT_EQ(reports::openWatts(state), 9);
  state.systemWatts.reset();
  EXPECT_EQ(reports::openWatts(state), 12);
  state.battery = BatteryReading{50, 7, false, true, {}};
  EXPECT_EQ(reports::openWatts(state), 12) << "what charges doesn't say what is drawn";
  state.battery->charging = false;
  EXPECT_EQ(reports::openWatts(state), 7);
}

TEST_F(ReportTexts, TheMenuBarShowsWhatWasChosen) {
  const auto with = [](MenuBarText text, ReportReadings state) {
    state.config.menuBarText = text;
    return state;
  };
  auto discharging = readings;
  discharging.battery = BatteryReading{50, 6.25, false, false, {}};
  auto charging = discharging;
  charging.battery->charging = true;
  auto low = onBattery();
  low.battery->percent = 20;  // 3.5 Wh at 5 W: 42 min
  auto weakCharger = onBattery();
  weakCharger.battery->onAC = true;
  auto unknown = onBattery();
  unknown.closedDraw = 0.1;
  using enum MenuBarText;
  const struct {
    ReportReadings readings;
    std::optional<std::string> title;
  } cases[] = {
      {with(none, onBattery()), {}},
      {with(battery, onBattery()), "80%"},
      {with(battery, readings), {}},
      {with(watts, onBattery()), "10.0W"},
      {with(watts, discharging), "6.2W"},
      {with(watts, charging), {}},
      {with(watts, readings), {}},
      {with(timeLeft, readings), {}},
      {with(timeLeft, onCharger(false)), "∞"},
      {with(timeLeft, onCharger(true)), "∞"},
      {with(timeLeft, onCharger(true, 8)), "∞"},
      {with(timeLeft, weakCharger), "9h"},
      {with(timeLeft, onBattery()), "9h"},
      {with(timeLeft, low), "42m"},
      {with(timeLeft, unknown), {}},
      {with(timer, in(Mode::on, 65.9)), "1:05"},
      {with(timer, in(Mode::on, -3)), "0:00"},
      {with(timer, in(Mode::on)), {}},
      {with(timer, in(Mode::automatic, 65)), {}},
  };
  for (std::size_t at = 0; at < std::size(cases); ++at) {
    EXPECT_EQ(reports::menuBarTitle(cases[at].readings), cases[at].title) << "row " << at;
  }
}

TEST_F(ReportTexts, QuietTimeRunsOnlyForWhatCounts) {
  AgentSession session;
  session.kind.id = "claude";
  Config config;
  config.quietMinutes = 5;
  const auto idleFor = [&](double seconds) {
    session.lastActive = kNow + -seconds;
    return reports::sleepsIn(session, config, kNow);
  };
  EXPECT_EQ(idleFor(19), std::nullopt);
  EXPECT_EQ(idleFor(20), 280);
  EXPECT_EQ(idleFor(299), 1);
  EXPECT_EQ(idleFor(300), std::nullopt);
  session.lastActive = kDistantPast;
  EXPECT_EQ(reports::sleepsIn(session, config, kNow), std::nullopt);
  config.trackOnly = {"claude"};
  EXPECT_EQ(idleFor(60), std::nullopt);
  config.trackOnly.clear();
  config.sleepWhenDone = false;
  EXPECT_EQ(idleFor(60), std::nullopt);
  config.sleepWhenDone = true;
  config.mode = Mode::on;
  EXPECT_EQ(idleFor(60), std::nullopt);
}

TEST_F(ReportTexts, AReceiptTellsHowLongAndHowItEnded) {
  Receipt still;
  still.closedAt = kNow;
  Receipt opened = still;
  opened.openedAt = kNow + 20;
  Receipt asked = opened;
  asked.sleepRequestedAt = kNow + 3599;
  asked.startPercent = 80;
  asked.endPercent = 80;
  Receipt slept = asked;
  slept.sleptAt = kNow + 36065;
  slept.endPercent = 42;
  Receipt charged = opened;
  charged.startPercent = 40;
  charged.endPercent = 41;
  EXPECT_EQ(reports::receiptLine(opened, kNow), "Stayed awake 1 min");
  EXPECT_EQ(reports::receiptLine(asked, kNow), "Ran 59 min, then asked it to sleep · used 0%");
  EXPECT_EQ(reports::receiptLine(slept, kNow), "Ran 10 h 1 min, then slept · used 38%");
  EXPECT_EQ(reports::receiptLine(charged, kNow), "Stayed awake 1 min");
  EXPECT_EQ(reports::receiptLine(still, kNow + 3600), "Stayed awake 1 h 0 min");

  EXPECT_TRUE(reports::recentReceipt(opened, kNow + 20 + 1799.9));
  EXPECT_FALSE(reports::recentReceipt(opened, kNow + 20 + 1800));
  EXPECT_FALSE(reports::recentReceipt(still, kNow));
  EXPECT_FALSE(reports::recentReceipt({}, kNow));
}

TEST_F(ReportTexts, TheWeeksSummaryIsCutAndAbsentWithoutSessions) {
  EXPECT_EQ(reports::weekSummary({}, 50), std::nullopt);
  const SavingsStats::Week week{.wh = 10.6, .whAvoided = 1.9, .sleptMinutes = 5, .closedMinutes = 119, .count = 2};
  EXPECT_EQ(reports::weekSummary(week, 50), (WeekSummary{2, 1, 12, 25}));
  EXPECT_EQ(reports::weekSummary(week, 0.2)->percent, 1250) << "less than one watt-hour is no battery";
  EXPECT_EQ(reports::weekSummary({.wh = 1e300, .count = 1}, 50)->wh, 1'000'000'000'000'000);
}

TEST_F(ReportTexts, ThePhoneShowsFiguresInShortWords) {
  using Figures = std::map<std::string, std::string>;
  auto state = onBattery();
  state.config.mode = Mode::automatic;
  Figures expected{{"modeLine", "Stays awake while your AI agents work, then sleeps."},
                   {"batteryLine", "80% · about 9 h 6 min with the lid closed"},
                   {"batteryState", "80% · 14% an hour now"},
                   {"figure", "9 h 6 min"},
                   {"figureCaption", "left with lid closed · +4 h 33 min vs. lid open"},
                   {"drawLine", "10 W open"}};
  EXPECT_EQ(reports::phoneFigures(state, {}), expected);

  auto slow = onBattery(0.7);
  slow.lidClosed = slow.holding = true;
  expected["batteryState"] = "80% · 1.0% an hour now";
  expected["batteryLine"] = "80% · about 65 h with the lid closed";
  expected["figure"] = "65 h";
  expected["figureCaption"] = "left with lid closed";
  expected["drawLine"] = "1 W closed";
  expected["weekTitle"] = "1 session";
  expected["weekLine"] = "12 Wh saved";
  EXPECT_EQ(reports::phoneFigures(slow, WeekSummary{1, 1, 12, 25}), expected);
  slow.agentWorking = true;
  EXPECT_EQ(reports::phoneFigures(slow, WeekSummary{2, 1, 12, 25})["drawLine"], "1 W working, lid closed");
  EXPECT_EQ(reports::phoneFigures(slow, WeekSummary{2, 1, 12, 25})["weekTitle"], "2 sessions");

  const auto charging = reports::phoneFigures(onCharger(true), {});
  EXPECT_EQ(charging.at("batteryState"), "80% · charging");
  EXPECT_EQ(charging.at("figureCaption"), "on battery with the lid closed (charger in now)");
  EXPECT_FALSE(charging.contains("drawLine"));
  EXPECT_EQ(reports::phoneFigures(onCharger(false), {})["batteryState"], "80% · plugged in");
  const auto desktop = reports::phoneFigures(readings, {});
  EXPECT_EQ(desktop.at("figure"), "No limit");
  EXPECT_EQ(desktop.at("figureCaption"), "on the charger");
  EXPECT_FALSE(desktop.contains("batteryState"));
}

}  // namespace
}  // namespace tovi
