// What people and agents ask for directly.

#include <gtest/gtest.h>

#include "engine/World.h"

namespace tovi {
namespace {

struct RequestsTest : testing::Test, World {
  RequestsTest() { start(); }
};

TEST_F(RequestsTest, ATimedHoldIsAnnouncedAndEndsByItselfAlsoInModeOff) {
  turnOff();
  engine().addHold("training", 90, {}, {});
  EXPECT_EQ(announced.back(), std::pair(std::string("training"), std::string("Staying awake for 1.5 hours")));
  laptop.advance(90 * 60);
  EXPECT_TRUE(holds(true));
  laptop.advance(4);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(announced.back().first, "Turned off");
  EXPECT_EQ(state.read("runtime.json").value_or("").find("training"), std::string::npos);
}

TEST_F(RequestsTest, AHoldEndsWithItsProcessWhoeverGetsItsNumber) {
  const Pid build = program("/usr/bin/make");
  engine().addHold("build", {}, build, {});
  EXPECT_EQ(announced.back().second, "Staying awake");
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  reuse(build, "/usr/bin/make");
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().addHold("late", {}, 4242, {}).pidStart, std::nullopt);
  EXPECT_TRUE(engine().holds->empty()) << "made for a process that has gone, and dropped at once";
}

TEST_F(RequestsTest, AnOwnersNumberInOtherHandsIsNoOwner) {
  const Pid session = program("/usr/local/bin/tool");
  engine().addHold("thinking", 120, {}, session);
  laptop.advance(60);
  EXPECT_TRUE(holds(true));
  reuse(session, "/usr/local/bin/tool");
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  const Pid brief = program("/usr/local/bin/tool");
  engine().addHold("thinking", 120, {}, brief);
  reuse(brief, "/usr/local/bin/tool");
  laptop.advance(2);
  EXPECT_TRUE(holds(false)) << "within the second in which the hold was made";
  const Pid second = program("/usr/local/bin/tool");
  engine().addHold("thinking", 120, {}, second);
  reuse(second, "/usr/local/bin/tool");
  EXPECT_EQ(engine().releaseHolds(second), 1) << "what has lapsed counts as released";
}

TEST_F(RequestsTest, AlwaysRemembersTheModeItReplaced) {
  engine().stayAwake(std::optional<int>{});
  EXPECT_EQ(announced.back().first, "Always awake");
  engine().stayAwake(20000);
  EXPECT_EQ(announced.back().first, "Awake for 333.3 hours");
  EXPECT_EQ(engine().config->alwaysUntil, unixSeconds(laptop.now()) + 7 * 24 * 3600);
  engine().stayAwake(laptop.now() + 30);
  EXPECT_EQ(announced.back().first, "Awake for 1 min");
  EXPECT_TRUE(holds(true));
  laptop.advance(64);
  EXPECT_EQ(engine().config->mode, Mode::automatic);
  EXPECT_EQ(engine().config->alwaysUntil, std::nullopt);
  EXPECT_EQ(engine().config->modeBeforeAlways, std::nullopt);
  EXPECT_TRUE(holds(false));
  engine().stayAwake(60);
  turnOff();
  EXPECT_FALSE(engine().config->alwaysUntil || engine().config->modeBeforeAlways) << "what belonged to it goes with it";
}

TEST_F(RequestsTest, ReleasesTakeWhatTheyNameAndNothingElse) {
  const Pid a = program("/bin/a"), b = program("/bin/b");
  const Hold first = engine().addHold("first", {}, {}, a);
  engine().addHold("second", {}, a, {});
  const Hold third = engine().addHold("third", {}, {}, b);
  EXPECT_EQ(engine().releaseHolds(a, third.id), 0);
  EXPECT_EQ(engine().releaseHolds(a, first.id), 1);
  EXPECT_EQ(engine().releaseHolds(a), 1) << "one that is bound to it";
  EXPECT_EQ(engine().releaseHold(third.id), 1);
}

TEST_F(RequestsTest, SleepNowEndsEveryReasonUntilTheLidOpensAgain) {
  agent();
  laptop.advance(12);
  engine().stayAwake(std::optional<int>{});
  engine().addHold("training", {}, {}, {});
  engine().sleepNow();
  EXPECT_TRUE(holds(false));
  EXPECT_TRUE(asleep());
  EXPECT_EQ(engine().config->mode, Mode::automatic);
  laptop.advance(60);
  EXPECT_TRUE(holds(false)) << "the agent works on, and is ignored";
  engine().addHold("asked for", 1, {}, {});
  EXPECT_TRUE(holds(true)) << "an explicit hold isn't";
  engine().releaseHold({});
  lid(true);
  lid(false);
  laptop.advance(12);
  EXPECT_TRUE(holds(true));
}

TEST_F(RequestsTest, SleepNowInModeOffLeavesTheModeAloneAndAFullWakeEndsIt) {
  turnOff();
  engine().sleepNow();
  EXPECT_EQ(engine().config->mode, Mode::off);
  EXPECT_TRUE(engine().snoozed);
  EXPECT_TRUE(asleep());
  laptop.edit([](LaptopReport& report) { report.events.didWake = 1; });
  laptop.settle();
  EXPECT_FALSE(engine().snoozed);
}

TEST_F(RequestsTest, TheFloorCanBeWaivedUntilItCharges) {
  battery(10);
  laptop.advance(10);
  engine().addHold("training", {}, {}, {});
  EXPECT_TRUE(holds(false));
  engine().overrideFloor(true);
  EXPECT_TRUE(holds(true));
  EXPECT_FALSE(engine().floorLatched);
  battery(10, true);
  laptop.advance(10);
  EXPECT_FALSE(engine().floorOverride);
}

TEST_F(RequestsTest, HoldsOutliveARestartIfWhatBoundsThemDoes) {
  const Pid lives = program("/usr/bin/make"), dies = program("/usr/bin/ninja"), reused = program("/usr/bin/make");
  engine().addHold("until released", {}, {}, {});
  engine().addHold("two hours", 120, {}, {});
  engine().addHold("one minute", 1, {}, {});
  engine().addHold("lives", {}, lives, {});
  engine().addHold("dies", {}, dies, {});
  engine().addHold("reused", {}, reused, {});
  laptop.processes().exit(dies);
  reuse(reused, "/usr/bin/make");
  laptop.passAsleep(Seconds{120});
  crashAndRestart();
  std::string reasons;
  for (const Hold& hold : *engine().holds) reasons += hold.reason + ", ";
  EXPECT_EQ(reasons, "until released, two hours, lives, ");
  EXPECT_TRUE(holds(true));
}

TEST_F(RequestsTest, AProcessFromBeforeTheBootBoundsNothing) {
  const Pid make = program("/usr/bin/make");
  engine().addHold("build", {}, make, {});
  engine().addHold("owned", {}, {}, make);
  const std::string text = state.read("runtime.json").value();
  laptop.powerLoss();
  owned.reset();
  laptop.files().put(state.path("runtime.json"), text);
  // The same number with a start time that happens to agree still belongs to another boot.
  laptop.processes().add({.pid = make, .path = "/usr/bin/make"});
  start();
  laptop.advance(2);
  EXPECT_TRUE(engine().holds->empty());
}

}  // namespace
}  // namespace tovi
