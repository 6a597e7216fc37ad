#include "commands/StatusRecord.h"

#include <gtest/gtest.h>

#include "commands/Center.h"
#include "core/Dates.h"

namespace tovi {
namespace {

class StatusRecordTest : public testing::Test, protected Center {
 protected:
  Json record() { return statusRecord(engine()); }

  static AgentSession session(const char* id, Date lastActive) {
    AgentSession made;
    made.kind.id = made.kind.name = id;
    made.lastActive = lastActive;
    return made;
  }
};

TEST_F(StatusRecordTest, HasEveryKeyOfAMachineAtRestAndNoOther) {
  battery(80, true);
  engine().refreshFast();
  engine().systemWatts = std::nullopt;
  std::string keys;
  const Json now = record();
  for (const auto& [key, value] : now.items()) keys += key + " ";
  EXPECT_EQ(keys,
            "app_rules apps_using_energy battery closed_estimate_watts config_path estimated_savings_this_week holds "
            "ignored_sleep_blockers keeping_awake lid_closed mode ok power_measured preset setup_done status "
            "system_watts watch_list watching ");
  EXPECT_TRUE(now["system_watts"].is_null());
  EXPECT_EQ(now["mode"], "auto");
  EXPECT_EQ(now["battery"]["on_power"], true);
  engine().battery = std::optional<BatteryReading>{};
  EXPECT_FALSE(record().contains("battery"));
}

TEST_F(StatusRecordTest, HoldingWithTheLidClosedIsToldWithItsReasonAndTroubleIfThereIsSome) {
  ask("hold", {{"reason", "training"}});
  lid(true);
  engine().liveSavingW = 1.23456;
  engine().blockedReason = "Battery at 10%";
  engine().warning = "w";
  Json now = record();
  EXPECT_TRUE(now["keeping_awake"] == true && now["lid_closed"] == true) << now;
  EXPECT_EQ(now["reason"], "training");
  EXPECT_EQ(now["saving_now_watts"], 1.23);
  EXPECT_EQ(now["holds"][0]["reason"], "training");
  EXPECT_FALSE(now["holds"][0].contains("until"));
  EXPECT_TRUE(now["blocked_by"] == "Battery at 10%" && now["warning"] == "w") << now;
  engine().holding = false;
  now = record();
  EXPECT_FALSE(now.contains("reason") || now.contains("saving_now_watts")) << "not holding";
}

TEST_F(StatusRecordTest, SessionsAreSortedIntoKindsAndAges) {
  const Date now = laptop.now();
  auto busy = session("claude-code", now + -19);
  busy.toolRunning = true;
  busy.instances = 3;
  busy.project = "site";
  engine().sessions = {busy, session("request:HandBrake", now + -20), session("app:x", now + -179),
                       session("codex", kDistantPast)};
  const Json watching = record()["watching"];
  EXPECT_EQ(watching[0],
            Json::parse(R"({"name": "claude-code", "kind": "agent", "project": "site", "instances": 3, "working": true,
                            "running_command": true, "idle_minutes": 0})"));
  std::string rest;
  for (const Json& entry : watching)
    rest += entry["kind"].dump() + entry["working"].dump() + entry["idle_minutes"].dump();
  EXPECT_EQ(rest, R"("agent"true0"sleep_request"false0"app"false2"agent"false-1)");
}

TEST_F(StatusRecordTest, FiguresHaveTheirDecimals) {
  battery(80);
  engine().refreshFast();
  engine().systemWatts = 12.3456;
  engine().fullWh = 50;
  SavingsStats stats;
  stats.sessions = {{laptop.now() + -3600, 0, 10.006, 59.9, 2.5, {}, {}, {}}};
  engine().stats = stats;
  SleepBlocker blocker;
  blocker.process = "Zoom";
  blocker.since = dateFromUnix(0);
  engine().blockers = {blocker};
  engine().lastPowerSample.reset();
  Json now = record();
  EXPECT_EQ(now["system_watts"], 12.3);
  EXPECT_EQ(now["power_measured"], false);
  EXPECT_EQ(now["estimated_savings_this_week"],
            Json::parse(R"({"full_charges_equivalent": 0.25, "by_slowing_apps_wh": 10.01, "sessions": 1,
                            "by_sleeping_when_done_wh": 2.5, "slept_minutes": 59})"));
  EXPECT_EQ(now["ignored_sleep_blockers"], Json::array({{{"process", "Zoom"}, {"since", "1970-01-01T00:00:00Z"}}}));
  EXPECT_EQ(now["hours_left_closed"], json::rounded(*engine().hoursLeft(engine().closedEstimate()), 1));

  engine().lastPowerSample = PowerSample{.watts = 12, .accumulated = 5, .count = 1, .at = laptop.now()};
  now = record();
  EXPECT_EQ(now["power_measured"], true);
  EXPECT_TRUE(now["estimated_savings_this_week"].contains("vs_lid_open_wh"));
  EXPECT_FALSE(now["estimated_savings_this_week"].contains("by_slowing_apps_wh"));
}

TEST_F(StatusRecordTest, EnergyListSaysWhatBecomesOfEachApp) {
  std::vector<AppUsage> apps(12, AppUsage{"/Applications/A.app", "A", {}, 20.126, 0, {2000}, false});
  apps[1].bundleID = "com.example.a";
  engine().apps = apps;
  engine().setRule(AppRule::pause, "com.example.a");
  EXPECT_EQ(record()["apps_using_energy"].size(), 8u);
  const Json first = energyList(engine(), 2);
  EXPECT_EQ(first.size(), 2u);
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
