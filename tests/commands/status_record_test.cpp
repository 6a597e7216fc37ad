#include "commands/StatusRecord.h"

#include <gtest/gtest.h>

#include <set>

#include "commands/Center.h"
#include "core/Dates.h"

namespace tovi {
namespace {

class StatusRecordTest : public testing::Test, protected Center {
 protected:
  Json record() { return statusRecord(engine()); }

  static AgentSession session(std::string id, std::string name, Date lastActive) {
    AgentSession made;
    made.kind.id = std::move(id);
    made.kind.name = std::move(name);
    made.lastActive = lastActive;
    return made;
  }
};

TEST_F(StatusRecordTest, HasEveryKeyOfAMachineAtRestAndNoOther) {
  battery(80, true);
  engine().refreshFast();
  engine().systemWatts = std::nullopt;
  std::set<std::string> keys;
  const Json now = record();
  for (const auto& [key, value] : now.items()) keys.insert(key);
  EXPECT_EQ(keys, (std::set<std::string>{"ok", "status", "mode", "keeping_awake", "lid_closed", "setup_done", "preset",
                                         "closed_estimate_watts", "system_watts", "power_measured", "config_path",
                                         "holds", "watch_list", "app_rules", "watching", "apps_using_energy",
                                         "ignored_sleep_blockers", "battery", "estimated_savings_this_week"}));
  EXPECT_TRUE(record()["system_watts"].is_null());
  EXPECT_EQ(record()["mode"], "auto");
  EXPECT_EQ(record()["battery"]["on_power"], true);
}

TEST_F(StatusRecordTest, TellsOfTroubleOnlyWhenThereIsSome) {
  engine().blockedReason = "Battery at 10%";
  engine().warning = "w";
  engine().holdReason = "a wish";
  const Json without = record();
  EXPECT_EQ(without["blocked_by"], "Battery at 10%");
  EXPECT_EQ(without["warning"], "w");
  EXPECT_FALSE(without.contains("reason")) << "not holding";
  EXPECT_FALSE(without.contains("saving_now_watts"));
}

TEST_F(StatusRecordTest, HoldingWithTheLidClosedIsToldWithItsReason) {
  ask("hold", {{"reason", "training"}});
  lid(true);
  engine().liveSavingW = 1.23456;
  const Json now = record();
  EXPECT_EQ(now["keeping_awake"], true);
  EXPECT_EQ(now["lid_closed"], true);
  EXPECT_EQ(now["reason"], "training");
  EXPECT_EQ(now["saving_now_watts"], 1.23);
  EXPECT_EQ(now["holds"][0]["reason"], "training");
  EXPECT_FALSE(now["holds"][0].contains("until"));
}

TEST_F(StatusRecordTest, SessionsAreSortedIntoKindsAndAges) {
  const Date now = laptop.now();
  auto busy = session("claude", "Claude Code", now + -19);
  busy.toolRunning = true;
  busy.instances = 3;
  busy.project = "site";
  engine().sessions = {busy, session("request:HandBrake", "HandBrake", now + -20), session("app:x", "x", now + -179),
                       session("codex", "Codex", kDistantPast)};
  const Json watching = record()["watching"];
  EXPECT_EQ(watching[0], Json({{"name", "Claude Code"},
                               {"kind", "agent"},
                               {"project", "site"},
                               {"instances", 3},
                               {"working", true},
                               {"running_command", true},
                               {"idle_minutes", 0}}));
  const struct {
    const char* kind;
    int minutes;
  } cases[] = {{"agent", 0}, {"sleep_request", 0}, {"app", 2}, {"agent", -1}};
  for (std::size_t at = 0; at < 4; ++at) {
    EXPECT_EQ(watching[at]["kind"], cases[at].kind);
    EXPECT_EQ(watching[at]["idle_minutes"], cases[at].minutes);
    EXPECT_EQ(watching[at]["working"], at == 0);
  }
  EXPECT_EQ(watching[3]["project"], "");
}

TEST_F(StatusRecordTest, FiguresHaveTheirDecimals) {
  battery(80);
  engine().refreshFast();
  engine().systemWatts = 12.3456;
  engine().fullWh = 50;
  SavingsStats stats;
  SavingsStats::Session session;
  session.date = laptop.now() + -3600;
  session.whSaved = 10.006;
  session.sleptMinutes = 59.9;
  session.whAvoided = 2.5;
  stats.sessions = {session};
  engine().stats = stats;
  SleepBlocker blocker;
  blocker.process = "Zoom";
  blocker.since = dateFromUnix(0);
  engine().blockers = {blocker};
  engine().lastPowerSample.reset();
  Json now = record();
  EXPECT_EQ(now["system_watts"], 12.3);
  EXPECT_EQ(now["power_measured"], false);
  EXPECT_EQ(now["estimated_savings_this_week"], Json({{"full_charges_equivalent", 0.25},
                                                      {"by_slowing_apps_wh", 10.01},
                                                      {"by_sleeping_when_done_wh", 2.5},
                                                      {"slept_minutes", 59},
                                                      {"sessions", 1}}));
  EXPECT_EQ(now["ignored_sleep_blockers"], Json::array({{{"process", "Zoom"}, {"since", "1970-01-01T00:00:00Z"}}}));
  ASSERT_TRUE(now.contains("hours_left_closed"));
  EXPECT_EQ(now["hours_left_closed"], json::rounded(*engine().hoursLeft(engine().closedEstimate()), 1));

  engine().lastPowerSample = PowerSample{.watts = 12, .accumulated = 5, .count = 1, .at = laptop.now()};
  now = record();
  EXPECT_EQ(now["power_measured"], true);
  EXPECT_TRUE(now["estimated_savings_this_week"].contains("vs_lid_open_wh"));
  EXPECT_FALSE(now["estimated_savings_this_week"].contains("by_slowing_apps_wh"));
}

TEST_F(StatusRecordTest, OnPowerThereAreNoHoursLeft) {
  battery(80, true);
  engine().refreshFast();
  EXPECT_FALSE(record().contains("hours_left_closed"));
}

TEST_F(StatusRecordTest, NoBatteryIsNotABatteryOfZero) {
  engine().battery = std::optional<BatteryReading>{};
  EXPECT_FALSE(record().contains("battery"));
}

TEST_F(StatusRecordTest, EnergyListSaysWhatBecomesOfEachApp) {
  std::vector<AppUsage> apps;
  for (int at = 0; at < 12; ++at) {
    AppUsage app;
    app.id = "/Applications/App" + std::to_string(at) + ".app";
    app.name = "App" + std::to_string(at);
    app.watts = 20 - at + 0.126;
    if (at > 0) app.bundleID = "com.example.app" + std::to_string(at);
    app.pids = {2000 + at};
    apps.push_back(app);
  }
  engine().apps = apps;
  engine().setRule(AppRule::pause, "com.example.app1");
  EXPECT_EQ(record()["apps_using_energy"].size(), 8u);
  const Json first = energyList(engine(), 2);
  ASSERT_EQ(first.size(), 2u);
  EXPECT_EQ(first[0]["bundle_id"], "");
  EXPECT_EQ(first[0]["watts"], 20.13);
  EXPECT_EQ(first[1]["while_closed"], "pause");
}

TEST_F(StatusRecordTest, StatusCommandLooksAfresh) {
  agent();
  battery(42);
  const Json reply = ask("status");
  EXPECT_EQ(reply["battery"]["percent"], 42);
  ASSERT_EQ(reply["watching"].size(), 1u);
  EXPECT_EQ(ask("energy").size(), 2u);
}

}  // namespace
}  // namespace tovi
