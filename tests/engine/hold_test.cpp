// The sleep switch over time: work comes and goes, and the one switch that matters is thrown and given back.

#include <gtest/gtest.h>

#include "engine/Warnings.h"
#include "engine/World.h"

namespace tovi {
namespace {

struct HoldTest : testing::Test, World {};

TEST_F(HoldTest, WorkSwitchesSleepOffAndItsEndSwitchesItOnAgain) {
  start();
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().statusLine(), "Nothing running · sleeps when closed");
  const Pid claude = agent();
  laptop.advance(12);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().holdReason.get(), std::optional<std::string>("Claude Code is working"));
  EXPECT_EQ(engine().statusLine(), "Claude Code is working · sleeps when closed");
  EXPECT_EQ(laptop.activities().size(), 1u);
  ASSERT_EQ(announced.size(), 1u);
  EXPECT_EQ(announced[0],
            std::pair(std::string("Claude Code is working"), std::string("Close the lid, it keeps going")));

  laptop.processes().exit(claude);
  laptop.advance(20);
  EXPECT_EQ(engine().holdReason.get(), std::optional<std::string>("Claude Code stopped · sleeps in 4 min"));
  EXPECT_TRUE(holds(true));
  laptop.advance(300);
  EXPECT_TRUE(holds(false));
  EXPECT_TRUE(laptop.activities().empty());
  EXPECT_EQ(announced.back().second, "Sleeps normally again");
  EXPECT_FALSE(asleep());  // the lid is open: only the person puts it to sleep
}

TEST_F(HoldTest, WithTheLidClosedTheEndOfWorkPutsTheMachineToSleep) {
  start();
  const Pid claude = agent();
  laptop.advance(12);
  lid(true);
  laptop.advance(60);
  EXPECT_TRUE(holds(true));
  laptop.processes().exit(claude);
  laptop.advance(340);
  EXPECT_TRUE(holds(false));
  EXPECT_TRUE(asleep());
  EXPECT_EQ(engine().receipt.get()->sleptBecause, "Work finished");
}

TEST_F(HoldTest, TheMarkerStandsBeforeTheSwitchAndIsKeptFresh) {
  start();
  agent();
  laptop.advance(12);
  const auto log = laptop.faults().log();
  const auto at = [&](const char* what) {
    for (std::size_t line = 0; line < log.size(); ++line) {
      if (log[line].find(what) != std::string::npos) return line;
    }
    ADD_FAILURE() << what << " isn't in the log";
    return log.size();
  };
  EXPECT_LT(at("/Tovi/hold"), at("disablesleep 1"));
  laptop.advance(60);
  EXPECT_LE(secondsBetween(laptop.files().status(state.path("hold"))->modified, laptop.now()), 2.0);
}

TEST_F(HoldTest, ASleepThatDoesNotComeIsAskedForThreeTimesMore) {
  start();
  engine().addHold("training", 1, {}, {});
  lid(true);
  refuse({"pmset sleepnow"});
  laptop.advance(62);
  const auto asked = [&] { return laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset sleepnow"); };
  EXPECT_EQ(asked(), 1u);
  laptop.advance(58);
  EXPECT_EQ(asked(), 1u);
  laptop.advance(4);
  EXPECT_EQ(asked(), 2u);
  laptop.advance(120);
  EXPECT_EQ(asked(), 4u);
  laptop.advance(600);
  EXPECT_EQ(asked(), 4u);
}

TEST_F(HoldTest, ARefusedSwitchIsToldAndTriedAgainAfterHalfAMinute) {
  refuse({"pmset -a disablesleep 1"});
  start();
  engine().addHold("training", {}, {}, {});
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().warning.get(), std::optional<std::string>(warnings::kHoldRefused));
  const auto tries = [&] { return laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1"); };
  EXPECT_EQ(tries(), 1u);
  laptop.advance(28);
  EXPECT_EQ(tries(), 1u);
  laptop.advance(4);
  EXPECT_EQ(tries(), 2u);
  refuse({});
  laptop.advance(32);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

TEST_F(HoldTest, ARefusalIsForgottenWhenNothingIsWantedAnyMore) {
  refuse({"pmset -a disablesleep 1"});
  start();
  engine().addHold("training", {}, {}, {});
  engine().releaseHold({});
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  EXPECT_EQ(engine().holdFailedAt, std::nullopt);
}

TEST_F(HoldTest, WithoutAMarkerNothingIsSwitched) {
  start();
  laptop.files().setFull(true);
  engine().addHold("training", {}, {}, {});
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().setupError.get(),
            std::optional<std::string>("Tovi couldn't write to its folder, so it won't switch sleep off"));
  EXPECT_EQ(laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1"), 0u);
  laptop.files().setFull(false);
  laptop.advance(2);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().setupError.get(), std::nullopt);
}

TEST_F(HoldTest, AReleaseThatFailedKeepsItsMarkerUntilItWorks) {
  start();
  engine().addHold("training", {}, {}, {});
  refuse({"pmset -a disablesleep 0"});
  engine().releaseHold({});
  EXPECT_FALSE(engine().holding);
  EXPECT_TRUE(sleepOff());
  EXPECT_TRUE(marker());
  EXPECT_EQ(engine().warning.get(), std::optional<std::string>(warnings::kReleasePending));
  laptop.advance(20);
  EXPECT_TRUE(marker());
  refuse({});
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

TEST_F(HoldTest, APendingReleaseCanTurnIntoAHoldAgain) {
  start();
  engine().addHold("training", {}, {}, {});
  refuse({"pmset -a disablesleep"});
  engine().releaseHold({});
  engine().addHold("again", {}, {}, {});
  EXPECT_FALSE(engine().holding);
  EXPECT_TRUE(marker());  // the refused switch must not take the marker of the pending release
  refuse({});
  laptop.advance(32);
  EXPECT_TRUE(holds(true));
  EXPECT_FALSE(engine().pendingRelease);
  laptop.advance(60);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, SetupThatIsLostEndsTheHoldAndItsReturnBringsItBack) {
  start();
  engine().addHold("training", {}, {}, {});
  laptop.edit([](LaptopReport& report) { report.privileged = false; });
  engine().refreshFast();
  laptop.settle();
  EXPECT_FALSE(engine().holding);
  EXPECT_EQ(engine().statusLine(), "Needs a one-time setup");
  EXPECT_TRUE(engine().pendingRelease);  // without the rule sleep can't be switched on either
  laptop.edit([](LaptopReport& report) { report.privileged = true; });
  engine().refreshFast();
  laptop.advance(4);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, TheBatteryLimitStopsAWorkingAgentAndItsTextSaysSo) {
  start();
  agent();
  laptop.advance(12);
  battery(15);
  laptop.advance(10);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().statusLine(), "Battery at 15%, sleeps when closed");
  EXPECT_TRUE(engine().blockedByFloor());
  battery(18);
  laptop.advance(10);
  EXPECT_TRUE(engine().blockedByFloor());
  battery(19);
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, HeatRelievesBeforeItEndsTheSession) {
  start();
  engine().addHold("training", {}, {}, {});
  lid(true);
  heat(ThermalState::serious);
  EXPECT_TRUE(engine().heatForced);
  laptop.advance(298);
  EXPECT_TRUE(holds(true));
  laptop.advance(4);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().blockedReason.get(), std::optional<std::string>("Too hot"));
  EXPECT_FALSE(engine().heatForced);
  EXPECT_TRUE(asleep());
}

TEST_F(HoldTest, TheChargerComingOrGoingSwitchesSleepOffOnceMore) {
  start();
  engine().addHold("training", {}, {}, {});
  laptop.advance(10);
  laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });  // as the system does
  battery(80, true);
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  refuse({"pmset -a disablesleep 1"});
  battery(80, false);
  laptop.advance(10);
  EXPECT_EQ(engine().warning.get(), std::optional<std::string>(warnings::kPowerChange));
}

TEST_F(HoldTest, ASwitchThatSomebodyTurnedBackIsSetRight) {
  start();
  engine().addHold("training", {}, {}, {});
  laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, APassiveEngineChangesNothing) {
  agent();
  laptop.advance(60);
  const auto before = laptop.faults().operations();
  Engine passive(laptop.machine(), true);
  passive.addHold("training", {}, {}, {});
  EXPECT_TRUE(passive.holding);
  passive.sleepNow();
  passive.shutdown();
  laptop.advance(60);
  EXPECT_FALSE(sleepOff());
  EXPECT_FALSE(asleep());
  EXPECT_EQ(laptop.faults().operations(), before);
}

TEST_F(HoldTest, APassiveEngineLeavesAHotClosedLaptopAlone) {
  laptop.edit([](LaptopReport& report) {
    report.lid = LaptopLid::closed;
    report.thermal = ThermalState::serious;
  });
  laptop.settle();
  const auto before = laptop.faults().operations();
  Engine passive(laptop.machine(), true);
  passive.addHold("training", {}, {}, {});
  passive.lidChanged(false);
  passive.lidChanged(true);
  EXPECT_NE(passive.uninstallHelper(), std::nullopt);
  EXPECT_EQ(laptop.faults().operations(), before);
}

TEST_F(HoldTest, ShutdownInACheckInSwitchesSleepBackOn) {
  config(R"({"checkInMinutes": 15})");
  start();
  lid(true);
  laptop.edit([](LaptopReport& report) { report.events.poweredOn = 1; });
  laptop.settle();
  ASSERT_TRUE(engine().checkInUntil);
  ASSERT_TRUE(sleepOff());
  engine().shutdown();
  EXPECT_TRUE(holds(false));
}

TEST_F(HoldTest, ACheckInWithoutAMarkerIsNone) {
  config(R"({"checkInMinutes": 15})");
  start();
  lid(true);
  laptop.files().setFull(true);
  laptop.edit([](LaptopReport& report) { report.events.poweredOn = 1; });
  laptop.settle();
  EXPECT_TRUE(holds(false));
}

TEST_F(HoldTest, ASessionThatACrashInterruptedIsAdoptedForAMoment) {
  struct Case {
    const char* name;
    const char* config;
    bool agentWorks, closed;
    double seconds;  // until it is settled
    bool held, sleeps;
  };
  for (const Case& row : {Case{"nothing asks: let go at once", R"({"mode": "off"})", false, false, 0, false, false},
                          Case{"work may show: let go after the grace", "{}", false, true, 34, false, true},
                          Case{"work shows: taken over", "{}", true, true, 18, true, false}}) {
    World world;
    world.config(row.config);
    world.start();
    world.engine().addHold("training", {}, {}, {});
    ASSERT_TRUE(world.holds(true)) << row.name;
    world.laptop.files().erase(world.state.path("runtime.json"));
    world.lid(row.closed);
    if (row.agentWorks) world.agent();
    world.crashAndRestart();
    if (row.seconds > 0) {
      EXPECT_TRUE(world.engine().adoptedHoldUntil) << row.name;
      EXPECT_TRUE(world.sleepOff() && world.marker()) << row.name;
    }
    world.laptop.advance(row.seconds);
    EXPECT_TRUE(world.holds(row.held)) << row.name;
    EXPECT_EQ(world.asleep(), row.sleeps) << row.name;
    EXPECT_EQ(world.engine().adoptedHoldUntil, std::nullopt) << row.name;
  }
}

TEST_F(HoldTest, AMarkerOfAnAdoptedSessionSurvivesARefusedSwitch) {
  start();
  engine().addHold("training", {}, {}, {});
  refuse({"pmset -a disablesleep"});
  crashAndRestart();
  EXPECT_FALSE(engine().holding);
  EXPECT_TRUE(sleepOff());
  EXPECT_TRUE(marker());
  refuse({});
  laptop.advance(32);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, ShutdownGivesEverythingBackOnceAndOnlyIfItIsOurs) {
  start();
  engine().shutdown();
  EXPECT_EQ(laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0"), 0u);
  engine().addHold("training", {}, {}, {});
  lid(true);
  engine().shutdown();
  EXPECT_TRUE(holds(false));
  EXPECT_FALSE(asleep());

  laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });  // somebody else's
  engine().shutdown();
  EXPECT_TRUE(sleepOff());
}

TEST_F(HoldTest, ADayOfWorkInBurstsEndsWithNothingLeftBehind) {
  start();
  int held = 0;
  for (int hour = 0; hour < 24; ++hour) {
    const Pid claude = agent();
    laptop.advance(20 * 60);
    held += engine().holding ? 1 : 0;
    laptop.processes().exit(claude);
    laptop.advance(40 * 60);
    EXPECT_TRUE(holds(false)) << hour;
  }
  EXPECT_EQ(held, 24);
  EXPECT_EQ(engine().ticks, 24 * 1800);
}

}  // namespace
}  // namespace tovi
