#include "engine/AwakeDecision.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tovi {
namespace {

constexpr Date kNow = dateFromUnix(1767600000);

struct Working : AwakeReadings {
  explicit Working(int percent = 80) {
    now = kNow;
    workReason = "Claude Code is working";
    batteryFloor = 20;
    battery = BatteryReading{.percent = percent, .watts = 8, .onAC = false, .charging = false, .minutesLeft = {}};
  }
  AwakeVerdict verdict() const { return decideAwake(*this); }
};

TEST(AwakeChoice, EachModeListensToWhatItShould) {
  struct Case {
    Mode mode;
    bool hold, snoozed, work;
    std::optional<std::string> reason;
  };
  using enum Mode;
  for (const Case& row :
       {Case{off, true, true, true, "training"}, Case{off, false, false, true, {}},
        Case{automatic, true, true, true, "training"}, Case{automatic, false, false, true, "Claude Code is working"},
        Case{automatic, false, true, true, {}}, Case{automatic, false, false, false, {}},
        Case{on, true, true, true, "Always awake"}}) {
    Working readings;
    readings.mode = row.mode;
    readings.snoozed = row.snoozed;
    if (row.hold) readings.lastHoldReason = "training";
    if (!row.work) readings.workReason.reset();
    const AwakeVerdict verdict = readings.verdict();
    EXPECT_EQ(verdict.reason, row.reason) << static_cast<int>(row.mode) << row.hold << row.snoozed << row.work;
    EXPECT_EQ(verdict.wants && verdict.allowed, row.reason.has_value());
  }
}

TEST(BatteryFloor, RefusesAtTheFloorAndHoldsUntilItHasRecovered) {
  struct Case {
    int percent;
    bool latched, allowed;
  };
  for (const Case& row : {Case{21, false, true}, Case{20, false, false}, Case{19, true, false}, Case{23, true, false},
                          Case{24, true, true}}) {
    Working readings(row.percent);
    readings.floorLatched = row.latched;
    EXPECT_EQ(readings.verdict().allowed, row.allowed) << row.percent;
    EXPECT_EQ(readings.verdict().floorLatched, !row.allowed) << row.percent;
    EXPECT_EQ(readings.verdict().blockedReason.value_or(""),
              row.allowed ? "" : "Battery at " + std::to_string(row.percent) + "%");
  }
}

TEST(BatteryFloor, IsWaivedByZeroByThePersonAndByACharger) {
  const auto allowedAtFivePercent = [](void (*change)(Working&)) {
    Working readings(5);
    change(readings);
    return readings.verdict().allowed;
  };
  EXPECT_TRUE(allowedAtFivePercent([](Working& w) { w.batteryFloor = 0; }));
  EXPECT_TRUE(allowedAtFivePercent([](Working& w) { w.floorOverride = true; }));
  EXPECT_TRUE(allowedAtFivePercent([](Working& w) { w.battery.reset(); })) << "a desktop";
  EXPECT_FALSE(allowedAtFivePercent([](Working& w) { w.battery->onAC = true; })) << "it drains all the same";

  Working charging(5);
  charging.floorLatched = charging.battery->onAC = charging.battery->charging = true;
  EXPECT_TRUE(charging.verdict().allowed);
  EXPECT_FALSE(charging.verdict().floorLatched);
  charging.workReason.reset();
  EXPECT_FALSE(charging.verdict().floorLatched) << "also while nothing is wanted";
  charging.battery->charging = false;
  EXPECT_TRUE(charging.verdict().floorLatched);
}

TEST(OnlyOnPower, ComesBeforeTheFloor) {
  Working readings(5);
  readings.onlyOnPower = true;
  EXPECT_EQ(readings.verdict().blockedReason, "Only on power");
  EXPECT_FALSE(readings.verdict().floorLatched);
  readings.battery->onAC = true;
  readings.battery->watts = 0.3;
  EXPECT_TRUE(readings.verdict().allowed);
}

TEST(Heat, EndsAHotSessionAfterFiveMinutesAndACriticalOneAtOnce) {
  Working readings;
  readings.lidClosed = true;
  readings.thermal = ThermalState::serious;
  EXPECT_EQ(readings.verdict().hotSince, kNow);
  readings.hotSince = kNow + -299;
  EXPECT_TRUE(readings.verdict().allowed);
  readings.hotSince = kNow + -300;
  EXPECT_EQ(readings.verdict().blockedReason, "Too hot");
  EXPECT_EQ(readings.verdict().hotSince, kNow + -300);

  Working unguarded = readings;
  unguarded.heatGuard = false;
  unguarded.thermal = ThermalState::critical;
  EXPECT_TRUE(unguarded.verdict().allowed);

  Working open = readings;
  open.lidClosed = false;
  EXPECT_TRUE(open.verdict().allowed);
  EXPECT_EQ(open.verdict().hotSince, std::nullopt);
  open.thermal = ThermalState::critical;
  EXPECT_FALSE(open.verdict().allowed);
  open.battery->percent = 10;
  EXPECT_EQ(open.verdict().blockedReason, "Battery at 10%") << "of the two, the battery is told";

  readings.thermal = ThermalState::fair;
  EXPECT_EQ(readings.verdict().hotSince, std::nullopt);
}

AgentKind kindOf(std::string_view id) { return *std::ranges::find(AgentKind::all(), id, &AgentKind::id); }

struct WorkReason : testing::Test {
  std::vector<AgentSession> sessions;
  Config config;
  std::optional<Sighting> lastWork, lastSeen;

  void add(const AgentKind& kind, double idleSeconds = 0) {
    AgentSession& session = sessions.emplace_back();
    session.kind = kind;
    session.lastActive = kNow + -idleSeconds;
    session.watts = 1;
  }
  std::optional<std::string> reason() const { return workReason(sessions, config, lastWork, lastSeen, kNow); }
};

TEST_F(WorkReason, SaysWhatTheAgentDoes) {
  add(kindOf("claude-code"));
  sessions[0].toolRunning = true;
  EXPECT_EQ(reason(), "Claude Code is working") << "it draws power itself";
  sessions[0].watts = 0.01;
  EXPECT_EQ(reason(), "Claude Code is running a command");
  sessions[0].instances = 2;
  EXPECT_EQ(reason(), "Claude Code ×2 is running a command");
  sessions[0].lastActive = kNow + -20;
  EXPECT_EQ(reason(), "Claude Code ×2 went idle · sleeps in 4 min");
  sessions[0].lastActive = kNow + -299;
  EXPECT_EQ(reason(), "Claude Code ×2 went idle · sleeps in 0 min");
  sessions[0].lastActive = kNow + -300;
  EXPECT_EQ(reason(), std::nullopt);
}

TEST_F(WorkReason, WithoutSleepWhenDoneAnOpenAgentIsReasonEnough) {
  config.sleepWhenDone = false;
  add(kindOf("codex"), 7 * 3600);
  EXPECT_EQ(reason(), "Codex is open");
  sessions.clear();
  lastWork = Sighting{kNow + -10, "never asked"};
  EXPECT_EQ(reason(), std::nullopt);
  lastSeen = Sighting{kNow + -60, "Codex"};
  EXPECT_EQ(reason(), "Codex stopped · sleeps in 1 min");
  lastSeen->at = kNow + -120;
  EXPECT_EQ(reason(), std::nullopt);
}

TEST_F(WorkReason, PassesOverAgentsThatDoNotCount) {
  add(AgentKind::claudeApp());
  add(kindOf("codex"), 1);
  EXPECT_EQ(reason(), "Claude app is working");
  config.countClaudeApp = false;
  EXPECT_EQ(reason(), "Codex is working");
  config.trackOnly = {"codex"};
  EXPECT_EQ(reason(), std::nullopt);
  add(AgentKind::request("HandBrake"));
  EXPECT_EQ(reason(), "HandBrake asked to stay awake");
  sessions[2].kind = AgentKind::watched({"/Applications/Blender.app", "Blender"});
  EXPECT_EQ(reason(), "Blender is busy");
}

}  // namespace
}  // namespace tovi
