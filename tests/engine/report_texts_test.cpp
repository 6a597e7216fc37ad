// The wording of the state and the estimates behind it, row by row.

#include "engine/ReportTexts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

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
  ReportReadings holding(Mode mode, std::optional<std::string> reason) {
    ReportReadings changed = in(mode);
    changed.holding = true;
    changed.holdReason = std::move(reason);
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
  static ReportReadings withoutLid(ReportReadings readings) {
    readings.hasLid = false;
    return readings;
  }
};

TEST_F(ReportTexts, TheStatusAndTheLidTakeTheFirstReasonThatHolds) {
  auto blocked = in(Mode::on);
  blocked.blockedReason = "Too warm";
  blocked.holding = true;
  auto unready = blocked;
  unready.setupReady = false;
  const struct {
    ReportReadings readings;
    const char* status;
    bool keeps;
    const char* detail;
  } cases[] = {
      {unready, "Needs a one-time setup", false, "Tovi needs a one-time setup"},
      {blocked, "Too warm, sleeps when closed", false, "Too warm"},
      {holding(Mode::off, "training"), "training · sleeps when closed", true, "training"},
      {holding(Mode::automatic, "training"), "training · sleeps when closed", true, "training"},
      {holding(Mode::automatic, {}), "Nothing running · sleeps when closed", true, "Staying awake"},
      {in(Mode::off), "Sleeps when you close the lid", false, "Tovi is off"},
      {in(Mode::automatic), "Nothing running · sleeps when closed", false, "No agent is working right now"},
      {in(Mode::on, 90), "Awake until 09:30 · 1 h 30 min left", false, "Starting…"},
      {in(Mode::on, -1), "Awake until 07:59 · 0 min left", false, "Starting…"},
      {in(Mode::on), "Awake until you turn it off", false, "Starting…"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(reports::statusLine(row.readings), row.status);
    const char* headline = row.keeps ? "Close the lid: it keeps working" : "Close the lid: it sleeps";
    EXPECT_EQ(reports::lidOutcome(row.readings), (LidOutcome{row.keeps, headline, row.detail}));
    EXPECT_EQ(reports::lidOutcome(withoutLid(row.readings)).headline, row.keeps ? "Stays awake" : "Sleeps normally");
  }
}

TEST_F(ReportTexts, TheModeLineKnowsMachinesWithoutALid) {
  EXPECT_EQ(reports::modeLine(in(Mode::off)), "Sleeps like normal when you close the lid.");
  EXPECT_EQ(reports::modeLine(withoutLid(in(Mode::off))), "Sleeps like normal.");
  EXPECT_EQ(reports::modeLine(in(Mode::automatic)), "Stays awake while your AI agents work, then sleeps.");
  EXPECT_EQ(reports::modeLine(in(Mode::on, 30)), "Stays awake until 08:30.");
  EXPECT_EQ(reports::modeLine(in(Mode::on)), "Stays awake until you turn it off.");
}

TEST_F(ReportTexts, TheBatteryLinesNeedABatteryAndALid) {
  auto unknown = onCharger(true);
  unknown.closedDraw = 0.1;  // too little to tell
  auto idle = unknown;
  idle.battery->charging = false;
  const std::string hours = "80% · about 9 h 6 min with the lid closed";
  const struct {
    ReportReadings readings;
    std::optional<std::string> line, detail;
  } cases[] = {
      {readings, {}, {}},
      {onBattery(), hours, "9 h 6 min left with the lid closed"},
      {onCharger(true), hours, "charging (9 h 6 min on battery, lid closed)"},
      {onCharger(false), hours, "plugged in (9 h 6 min on battery, lid closed)"},
      {withoutLid(onBattery()), "80%", {}},
      {withoutLid(onCharger(true)), "80% · charging", "charging"},
      {unknown, "80% · charging", "charging"},
      {idle, "80%", "plugged in"},
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
  state.battery->percent = 14;
  EXPECT_EQ(reports::hoursLeft(state, 10), 0.0) << "below the limit";
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
  state.battery = BatteryReading{50, 7, false, true, {}};
  EXPECT_EQ(reports::openWatts(state), 12) << "what charges doesn't say what is drawn";
  state.battery->charging = false;
  EXPECT_EQ(reports::openWatts(state), 7);
}

TEST_F(ReportTexts, TheMenuBarShowsWhatWasChosen) {
  const auto expectTitle = [](MenuBarText text, ReportReadings state, const std::optional<std::string>& title) {
    state.config.menuBarText = text;
    EXPECT_EQ(reports::menuBarTitle(state), title);
  };
  auto discharging = onBattery(6.25);
  discharging.systemWatts.reset();
  auto charging = discharging;
  charging.battery->charging = true;
  auto low = onBattery();
  low.battery->percent = 20;  // 3.5 Wh at 5 W: 42 min
  auto unknown = onBattery();
  unknown.closedDraw = 0.1;
  using enum MenuBarText;
  expectTitle(none, onBattery(), {});
  expectTitle(battery, onBattery(), "80%");
  expectTitle(battery, readings, {});
  expectTitle(watts, onBattery(), "10.0W");
  expectTitle(watts, discharging, "6.2W");
  expectTitle(watts, charging, {});
  expectTitle(watts, readings, {});
  expectTitle(timeLeft, readings, {});
  expectTitle(timeLeft, onCharger(false), "∞");
  expectTitle(timeLeft, onCharger(true, 8), "∞");
  expectTitle(timeLeft, onCharger(false, 10), "9h");  // it is too weak
  expectTitle(timeLeft, low, "42m");
  expectTitle(timeLeft, unknown, {});
  expectTitle(timer, in(Mode::on, 65.9), "1:05");
  expectTitle(timer, in(Mode::on, -3), "0:00");
  expectTitle(timer, in(Mode::on), {});
  expectTitle(timer, in(Mode::automatic, 65), {});
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
  opened.startPercent = 40;
  opened.endPercent = 41;  // charged meanwhile
  Receipt asked = opened;
  asked.sleepRequestedAt = kNow + 3599;
  asked.startPercent = asked.endPercent = 80;
  Receipt slept = asked;
  slept.sleptAt = kNow + 36065;
  slept.endPercent = 42;
  EXPECT_EQ(reports::receiptLine(opened, kNow), "Stayed awake 1 min");
  EXPECT_EQ(reports::receiptLine(asked, kNow), "Ran 59 min, then asked it to sleep · used 0%");
  EXPECT_EQ(reports::receiptLine(slept, kNow), "Ran 10 h 1 min, then slept · used 38%");
  EXPECT_EQ(reports::receiptLine(still, kNow + 3600), "Stayed awake 1 h 0 min");
  EXPECT_TRUE(reports::recentReceipt(opened, kNow + 20 + 1799.9));
  EXPECT_FALSE(reports::recentReceipt(opened, kNow + 20 + 1800));
  EXPECT_FALSE(reports::recentReceipt(still, kNow));
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
  // The others in a line each.
  const auto told = [](const ReportReadings& these, const std::optional<WeekSummary>& week = {}) {
    std::string text;
    for (const auto& [key, words] : reports::phoneFigures(these, week)) {
      if (key != "modeLine" && key != "batteryLine") text += key + ": " + words + "; ";
    }
    return text;
  };
  EXPECT_EQ(told(slow, WeekSummary{1, 1, 12, 25}),
            "batteryState: 80% · 1.0% an hour now; drawLine: 1 W closed; figure: 65 h; figureCaption: left with lid "
            "closed; weekLine: 12 Wh saved; weekTitle: 1 session; ");
  slow.agentWorking = true;
  EXPECT_EQ(told(slow, WeekSummary{2, 1, 12, 25}),
            "batteryState: 80% · 1.0% an hour now; drawLine: 1 W working, lid closed; figure: 65 h; figureCaption: "
            "left with lid closed; weekLine: 12 Wh saved; weekTitle: 2 sessions; ");
  EXPECT_EQ(told(onCharger(true)),
            "batteryState: 80% · charging; figure: 9 h 6 min; figureCaption: on battery with the lid closed (charger "
            "in now); ");
  EXPECT_TRUE(told(onCharger(false)).starts_with("batteryState: 80% · plugged in; "));
  EXPECT_EQ(told(readings), "figure: No limit; figureCaption: on the charger; ");
}

}  // namespace
}  // namespace tovi
