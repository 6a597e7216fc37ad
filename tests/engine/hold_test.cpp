// The sleep switch over time: work comes and goes, and the one switch that matters is thrown and given back.

#include <gtest/gtest.h>

#include <algorithm>

#include "engine/Warnings.h"
#include "engine/World.h"
#include "safety/Watchdog.h"

namespace tovi {
namespace {

struct HoldTest : testing::Test, World {
  void train() { start().addHold("training", {}, {}, {}); }
  void switchBackOn() {
    laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });
  }
};

TEST_F(HoldTest, WorkSwitchesSleepOffAndItsEndSwitchesItOnAgain) {
  start();
  EXPECT_TRUE(holds(false));
  const Pid claude = agent();
  laptop.advance(12);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(laptop.activities().size(), 1u);
  EXPECT_EQ(announced.at(0),
            std::pair(std::string("Claude Code is working"), std::string("Close the lid, it keeps going")));

  laptop.processes().exit(claude);
  laptop.advance(20);
  EXPECT_EQ(engine().holdReason.get(), "Claude Code stopped · sleeps in 4 min");
  laptop.advance(300);
  EXPECT_TRUE(holds(false));
  EXPECT_TRUE(laptop.activities().empty());
  EXPECT_EQ(announced.back().second, "Sleeps normally again");
  EXPECT_FALSE(asleep()) << "the lid is open: only the person puts it to sleep";
}

TEST_F(HoldTest, WithTheLidClosedTheEndOfWorkPutsTheMachineToSleep) {
  const Pid claude = agent();
  start();
  laptop.advance(12);
  lid(true);
  laptop.processes().exit(claude);
  laptop.advance(340);
  EXPECT_TRUE(holds(false) && asleep());
  EXPECT_EQ(engine().receipt.get().value().sleptBecause, "Work finished");
}

TEST_F(HoldTest, TheMarkerStandsBeforeTheSwitchAndIsKeptFresh) {
  start();
  agent();
  laptop.advance(12);
  const auto log = laptop.faults().log();
  const auto at = [&](const char* what) {
    return std::ranges::find_if(log, [&](const auto& line) { return line.find(what) != std::string::npos; });
  };
  ASSERT_NE(at("disablesleep 1"), log.end());
  EXPECT_LT(at("/Tovi/hold"), at("disablesleep 1"));
  laptop.advance(60);
  EXPECT_LE(secondsBetween(laptop.files().status(state.path("hold"))->modified, laptop.now()), 2.0);
}

TEST_F(HoldTest, ARefusedSwitchIsToldAndTriedAgainAfterHalfAMinute) {
  refuse({"pmset -a disablesleep 1"});
  train();
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().warning.get(), warnings::kHoldRefused);
  const auto tries = [&] { return laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1"); };
  laptop.advance(28);
  EXPECT_EQ(tries(), 1u);
  laptop.advance(4);
  EXPECT_EQ(tries(), 2u);
  engine().releaseHold({});
  EXPECT_EQ(engine().warning.get(), std::nullopt) << "nothing is wanted any more";
  EXPECT_EQ(engine().holdFailedAt, std::nullopt);
  engine().addHold("again", {}, {}, {});
  refuse({});
  laptop.advance(32);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

// A rescue took it while this process stood still.
TEST_F(HoldTest, AMarkerThatSomebodyTookIsWrittenAgainBeforeTheSwitch) {
  train();
  laptop.files().erase(state.path("hold"));
  switchBackOn();
  laptop.files().setFull(true);
  battery(80, true);  // a change of power is another occasion to switch
  laptop.advance(30);
  EXPECT_FALSE(sleepOff() || marker());
  laptop.files().setFull(false);
  laptop.advance(12);
  EXPECT_TRUE(holds(true));
}

TEST_F(HoldTest, WithoutAMarkerNothingIsSwitched) {
  laptop.files().setFull(true);
  train();
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().setupError.get(), "Tovi couldn't write to its folder, so it won't switch sleep off");
  EXPECT_EQ(laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1"), 0u);
  laptop.files().setFull(false);
  laptop.advance(2);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().setupError.get(), std::nullopt);
}

TEST_F(HoldTest, AReleaseThatFailedKeepsItsMarkerUntilItWorks) {
  train();
  refuse({"pmset -a disablesleep 0"});
  engine().releaseHold({});
  EXPECT_FALSE(engine().holding);
  EXPECT_EQ(engine().warning.get(), warnings::kReleasePending);
  laptop.advance(20);
  EXPECT_TRUE(sleepOff() && marker());
  refuse({});
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

TEST_F(HoldTest, AReleaseThatTookLongerThanSleepWasAskedForAsksOnceMore) {
  train();
  lid(true);
  refuse({"pmset -a disablesleep 0"});
  engine().releaseHold({});
  laptop.advance(200);
  EXPECT_EQ(sleepsAsked(), 4u);
  refuse({});
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  EXPECT_TRUE(asleep());
}

TEST_F(HoldTest, APendingReleaseCanTurnIntoAHoldAgain) {
  train();
  refuse({"pmset -a disablesleep"});
  engine().releaseHold({});
  engine().addHold("again", {}, {}, {});
  EXPECT_FALSE(engine().holding);
  EXPECT_TRUE(marker());  // the refused switch must not take the marker of the pending release
  refuse({});
  laptop.advance(92);
  EXPECT_TRUE(holds(true));
  EXPECT_FALSE(engine().pendingRelease);
}

TEST_F(HoldTest, SetupThatIsLostEndsTheHoldAndItsReturnBringsItBack) {
  train();
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

TEST_F(HoldTest, ASwitchThatSomebodyTurnedBackIsSetRight) {
  train();
  switchBackOn();
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  switchBackOn();  // as the system does when the charger comes or goes
  battery(80, true);
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  refuse({"pmset -a disablesleep 1"});
  battery(80, false);
  laptop.advance(10);
  EXPECT_EQ(engine().warning.get(), warnings::kPowerChange);

  refuse({});
  laptop.advance(10);
  engine().warning = warnings::kBackupsStuck;
  state.touch(state.path("timemachine-restore"));
  refuse({"pmset -a disablesleep 1", "tmutil enable"});
  switchBackOn();
  battery(80, true);
  laptop.advance(12);
  EXPECT_EQ(engine().warning.get(), warnings::kPowerChange) << "it matters more than backups";
}

TEST_F(HoldTest, WhatARescueUndidBesideALivingApplicationIsDoneAgain) {
  set([](Config& config) { config.screenOffNoLock = true; });
  train();
  lid(true);
  const auto closed = laptop.switches();
  EXPECT_EQ(Watchdog::run(laptop.machine(), state, true), "restored");
  EXPECT_NE(laptop.switches(), closed);
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(laptop.switches(), closed) << "screen, power mode, backups";
  lid(false);
  EXPECT_TRUE(laptop.switches().display(1).enabled && laptop.switches().autoBackup);
}

TEST_F(HoldTest, APassiveEngineChangesNothingEvenOnAHotClosedLaptop) {
  agent();
  lid(true);
  heat(ThermalState::serious);
  const auto before = laptop.faults().operations();
  Engine passive(laptop.machine(), true);
  passive.addHold("training", {}, {}, {});
  EXPECT_TRUE(passive.holding);
  passive.lidChanged(false);
  passive.lidChanged(true);
  laptop.advance(60);
  passive.sleepNow();
  EXPECT_NE(passive.uninstallHelper(), std::nullopt);
  passive.shutdown();
  EXPECT_FALSE(sleepOff() || asleep());
  EXPECT_EQ(laptop.faults().operations(), before);
}

TEST_F(HoldTest, ASessionThatACrashInterruptedIsAdoptedForAMoment) {
  struct Case {
    const char* config;
    bool agentWorks, closed, held;
    double seconds;  // until it is settled
  };
  for (const Case& row : {Case{R"({"mode": "off"})", false, false, false, 0},  // nothing asks: let go at once
                          Case{"{}", false, true, false, 34},                  // work may show: after the grace
                          Case{"{}", true, true, true, 18}}) {                 // work shows: taken over
    World world;
    world.config(row.config);
    world.start().addHold("training", {}, {}, {});
    world.laptop.files().erase(world.state.path("runtime.json"));
    world.lid(row.closed);
    if (row.agentWorks) world.agent();
    world.crashAndRestart();
    EXPECT_EQ(world.engine().adoptedHoldUntil.has_value(), row.seconds > 0) << row.seconds;
    EXPECT_TRUE(row.seconds == 0 || (world.sleepOff() && world.marker())) << row.seconds;
    world.laptop.advance(row.seconds);
    EXPECT_TRUE(world.holds(row.held)) << row.seconds;
    EXPECT_EQ(world.asleep(), row.closed && !row.held) << row.seconds;
    EXPECT_EQ(world.engine().adoptedHoldUntil, std::nullopt) << row.seconds;
  }
}

TEST_F(HoldTest, AMarkerOfAnAdoptedSessionSurvivesARefusedSwitch) {
  train();
  refuse({"pmset -a disablesleep"});
  crashAndRestart();
  EXPECT_FALSE(engine().holding);
  EXPECT_TRUE(sleepOff() && marker());
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

}  // namespace
}  // namespace tovi
