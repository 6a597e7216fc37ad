#include "engine/AwakeDecision.h"

#include <gtest/gtest.h>

namespace tovi {
namespace {

constexpr Date kNow = dateFromUnix(1767600000);

AgentSession session(const char* id, double idleSeconds) {
  AgentSession session;
  for (const AgentKind& kind : AgentKind::all()) {
    if (kind.id == id) session.kind = kind;
  }
  session.lastActive = kNow + -idleSeconds;
  session.watts = 1;
  return session;
}

AwakeReadings working() {
  AwakeReadings readings;
  readings.now = kNow;
  readings.workReason = "Claude Code is working";
  readings.batteryFloor = 20;
  readings.battery = BatteryReading{.percent = 80, .watts = 8, .onAC = false, .charging = false, .minutesLeft = {}};
  return readings;
}

TEST(AwakeChoice, EachModeListensToWhatItShould) {
  struct Case {
    const char* name;
    Mode mode;
    bool hold, snoozed, work;
    std::optional<std::string> reason;
  };
  const Case cases[] = {
      {"off with a hold", Mode::off, true, true, true, "training"},
      {"off without", Mode::off, false, false, true, std::nullopt},
      {"auto: a hold comes before work, snoozed or not", Mode::automatic, true, true, true, "training"},
      {"auto: work", Mode::automatic, false, false, true, "Claude Code is working"},
      {"auto: work, but sleep now was said", Mode::automatic, false, true, true, std::nullopt},
      {"auto: nothing", Mode::automatic, false, false, false, std::nullopt},
      {"on: whatever else", Mode::on, true, true, true, "Always awake"},
  };
  for (const Case& row : cases) {
    AwakeReadings readings = working();
    readings.mode = row.mode;
    readings.snoozed = row.snoozed;
    if (row.hold) readings.lastHoldReason = "training";
    if (!row.work) readings.workReason.reset();
    const AwakeVerdict verdict = decideAwake(readings);
    EXPECT_EQ(verdict.reason, row.reason) << row.name;
    EXPECT_EQ(verdict.wants, row.reason.has_value()) << row.name;
    EXPECT_EQ(verdict.allowed, row.reason.has_value()) << row.name;
  }
}

TEST(BatteryFloor, RefusesAtTheFloorAndHoldsUntilItHasRecovered) {
  struct Case {
    int percent;
    bool latched;
    bool allowed;
    bool latchedAfter;
  };
  for (const Case& row : {Case{21, false, true, false}, Case{20, false, false, true}, Case{19, true, false, true},
                          Case{22, true, false, true}, Case{23, true, false, true}, Case{24, true, true, false}}) {
    AwakeReadings readings = working();
    readings.battery->percent = row.percent;
    readings.floorLatched = row.latched;
    const AwakeVerdict verdict = decideAwake(readings);
    EXPECT_EQ(verdict.allowed, row.allowed) << row.percent;
    EXPECT_EQ(verdict.floorLatched, row.latchedAfter) << row.percent;
    EXPECT_EQ(verdict.blockedReason.value_or(""), row.allowed ? "" : "Battery at " + std::to_string(row.percent) + "%");
  }
}

TEST(BatteryFloor, IsWaivedByZeroByThePersonAndByACharger) {
  AwakeReadings low = working();
  low.battery->percent = 5;
  EXPECT_FALSE(decideAwake(low).allowed);

  AwakeReadings none = low;
  none.batteryFloor = 0;
  EXPECT_TRUE(decideAwake(none).allowed);

  AwakeReadings waived = low;
  waived.floorOverride = true;
  EXPECT_TRUE(decideAwake(waived).allowed);

  AwakeReadings charging = low;
  charging.floorLatched = true;
  charging.battery->onAC = charging.battery->charging = true;
  EXPECT_TRUE(decideAwake(charging).allowed);
  EXPECT_FALSE(decideAwake(charging).floorLatched);

  AwakeReadings weakCharger = low;  // plugged in, and the battery still drains
  weakCharger.battery->onAC = true;
  EXPECT_FALSE(decideAwake(weakCharger).allowed);

  AwakeReadings desktop = low;
  desktop.battery.reset();
  EXPECT_TRUE(decideAwake(desktop).allowed);
}

TEST(BatteryFloor, TheLatchEndsWithTheChargerAlsoWhileNothingIsWanted) {
  AwakeReadings readings = working();
  readings.workReason.reset();
  readings.floorLatched = true;
  EXPECT_TRUE(decideAwake(readings).floorLatched);
  readings.battery->charging = true;
  EXPECT_FALSE(decideAwake(readings).floorLatched);
}

TEST(OnlyOnPower, ComesBeforeTheFloor) {
  AwakeReadings readings = working();
  readings.onlyOnPower = true;
  readings.battery->percent = 5;
  EXPECT_EQ(decideAwake(readings).blockedReason, "Only on power");
  EXPECT_FALSE(decideAwake(readings).floorLatched);
  readings.battery->onAC = true;
  readings.battery->watts = 0.3;
  EXPECT_TRUE(decideAwake(readings).allowed);
}

TEST(Heat, EndsAHotSessionAfterFiveMinutesAndACriticalOneAtOnce) {
  AwakeReadings readings = working();
  readings.lidClosed = true;
  readings.thermal = ThermalState::serious;
  EXPECT_EQ(decideAwake(readings).hotSince, kNow);
  readings.hotSince = kNow + -299;
  EXPECT_TRUE(decideAwake(readings).allowed);
  readings.hotSince = kNow + -300;
  EXPECT_EQ(decideAwake(readings).blockedReason, "Too hot");
  EXPECT_EQ(decideAwake(readings).hotSince, kNow + -300);

  AwakeReadings unguarded = readings;
  unguarded.heatGuard = false;
  unguarded.thermal = ThermalState::critical;
  EXPECT_TRUE(decideAwake(unguarded).allowed);

  AwakeReadings open = readings;
  open.lidClosed = false;
  EXPECT_TRUE(decideAwake(open).allowed);
  EXPECT_EQ(decideAwake(open).hotSince, std::nullopt);
  open.thermal = ThermalState::critical;
  EXPECT_FALSE(decideAwake(open).allowed);

  AwakeReadings fair = readings;
  fair.thermal = ThermalState::fair;
  EXPECT_EQ(decideAwake(fair).hotSince, std::nullopt);
}

TEST(Heat, OfABatteryThatIsLowTheBatteryIsTold) {
  AwakeReadings readings = working();
  readings.battery->percent = 10;
  readings.thermal = ThermalState::critical;
  EXPECT_EQ(decideAwake(readings).blockedReason, "Battery at 10%");
}

struct Work {
  std::vector<AgentSession> sessions;
  Config config;
  std::optional<Sighting> lastWork, lastSeen;

  std::optional<std::string> reason() const { return workReason(sessions, config, lastWork, lastSeen, kNow); }
};

TEST(WorkReason, SaysWhatTheAgentDoes) {
  Work work;
  work.sessions = {session("claude-code", 0)};
  EXPECT_EQ(work.reason(), "Claude Code is working");
  work.sessions[0].toolRunning = true;
  EXPECT_EQ(work.reason(), "Claude Code is working");  // it draws power itself
  work.sessions[0].watts = 0.01;
  EXPECT_EQ(work.reason(), "Claude Code is running a command");
  work.sessions[0].instances = 2;
  EXPECT_EQ(work.reason(), "Claude Code ×2 is running a command");
  work.sessions[0].lastActive = kNow + -20;
  EXPECT_EQ(work.reason(), "Claude Code ×2 went idle · sleeps in 4 min");
  work.sessions[0].lastActive = kNow + -299;
  EXPECT_EQ(work.reason(), "Claude Code ×2 went idle · sleeps in 0 min");
  work.sessions[0].lastActive = kNow + -300;
  EXPECT_EQ(work.reason(), std::nullopt);
}

TEST(WorkReason, WithoutSleepWhenDoneAnOpenAgentIsReasonEnough) {
  Work work;
  work.config.sleepWhenDone = false;
  work.sessions = {session("codex", 7 * 3600)};
  EXPECT_EQ(work.reason(), "Codex is open");
  work.sessions.clear();
  work.lastWork = Sighting{kNow + -10, "never asked"};
  EXPECT_EQ(work.reason(), std::nullopt);
  work.lastSeen = Sighting{kNow + -60, "Codex"};
  EXPECT_EQ(work.reason(), "Codex stopped · sleeps in 1 min");
  work.lastSeen->at = kNow + -120;
  EXPECT_EQ(work.reason(), std::nullopt);
}

TEST(WorkReason, AnAgentThatLeftIsRememberedForTheQuietTime) {
  Work work;
  work.lastWork = Sighting{kNow + -61, "Claude Code"};
  EXPECT_EQ(work.reason(), "Claude Code stopped · sleeps in 3 min");
  work.lastWork->at = kNow + -300;
  EXPECT_EQ(work.reason(), std::nullopt);
}

TEST(WorkReason, PassesOverAgentsThatDoNotCount) {
  Work work;
  AgentSession app = session("", 0);
  app.kind = AgentKind::claudeApp();
  work.sessions = {app, session("codex", 1)};
  EXPECT_EQ(work.reason(), "Claude app is working");
  work.config.countClaudeApp = false;
  EXPECT_EQ(work.reason(), "Codex is working");
  work.config.trackOnly = {"codex"};
  EXPECT_EQ(work.reason(), std::nullopt);
}

TEST(WorkReason, WordsRequestsAndWatchedApps) {
  AgentSession request = session("", 0);
  request.kind = AgentKind::request("HandBrake");
  request.instances = 3;
  EXPECT_EQ((Work{{request}, {}, {}, {}}.reason()), "HandBrake asked to stay awake");
  AgentSession app = session("", 0);
  app.kind = AgentKind::watched({"/Applications/Blender.app", "Blender"});
  EXPECT_EQ((Work{{app}, {}, {}, {}}.reason()), "Blender is busy");
}

}  // namespace
}  // namespace tovi
