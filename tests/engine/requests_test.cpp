// What people and agents ask for directly.

#include <gtest/gtest.h>

#include "engine/World.h"

namespace tovi {
namespace {

struct RequestsTest : testing::Test, World {
  RequestsTest() { start(); }

  std::string saved() { return state.read("runtime.json").value_or(""); }
};

TEST_F(RequestsTest, HoldsAreAnnouncedWithTheirLength) {
  const struct {
    std::optional<double> minutes;
    const char* body;
  } cases[] = {{{}, "Staying awake"},
               {89.9, "Staying awake for 89 min"},
               {90, "Staying awake for 1.5 hours"},
               {120, "Staying awake for 2 hours"},
               {0.75, "Staying awake for 0 min"}};
  for (const auto& row : cases) {
    engine().addHold("training", row.minutes, {}, {});
    EXPECT_EQ(announced.back(), std::pair(std::string("training"), std::string(row.body)));
  }
  EXPECT_EQ(engine().holds->size(), 5u);
}

TEST_F(RequestsTest, ATimedHoldEndsByItselfAlsoInModeOff) {
  Config off = engine().config;
  off.mode = Mode::off;
  engine().apply(off, true);
  engine().addHold("training", 90, {}, {});
  laptop.advance(90 * 60);
  EXPECT_TRUE(holds(true));
  laptop.advance(4);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(announced.back().first, "Turned off");
  EXPECT_EQ(saved().find("training"), std::string::npos);
}

TEST_F(RequestsTest, AHoldEndsWithItsProcessAndIsSavedOnce) {
  const Pid build = program("/usr/bin/make");
  engine().addHold("build", {}, build, {});
  laptop.advance(10);
  EXPECT_TRUE(holds(true));
  laptop.processes().exit(build);
  const auto before = laptop.faults().operations();
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
  int saves = 0;
  for (const auto& line : laptop.faults().log(before + 1))
    saves += line.starts_with("rename") && line.find("runtime.json") != std::string::npos;
  EXPECT_EQ(saves, 1);
}

TEST_F(RequestsTest, AHoldDoesNotFollowItsNumberToAnotherProcess) {
  const Pid build = program("/usr/bin/make");
  engine().addHold("build", {}, build, {});
  laptop.advance(2);
  laptop.processes().exit(build);
  laptop.processes().add(
      {.pid = build, .parent = 1, .path = "/usr/bin/make", .arguments = {}, .workingDirectory = "/", .start = {}});
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
}

TEST_F(RequestsTest, AHoldForAProcessThatHasGoneIsMadeAndDroppedAtOnce) {
  const Hold hold = engine().addHold("late", {}, 4242, {});
  EXPECT_EQ(hold.pidStart, std::nullopt);
  EXPECT_TRUE(engine().holds->empty());
  EXPECT_TRUE(holds(false));
}

TEST_F(RequestsTest, AnOwnersDeathEndsItsHoldWithoutAWord) {
  const Pid session = program("/usr/local/bin/tool");
  engine().addHold("thinking", 120, {}, session);
  EXPECT_TRUE(holds(true));
  laptop.processes().exit(session);
  laptop.advance(2);
  EXPECT_TRUE(holds(false));
}

TEST_F(RequestsTest, AnOwnersNumberInOtherHandsIsNoOwner) {
  const Pid session = program("/usr/local/bin/tool");
  engine().addHold("thinking", 120, {}, session);
  laptop.advance(60);
  laptop.processes().add({.pid = session, .parent = 1, .path = "/usr/local/bin/tool"});
  EXPECT_EQ(engine().releaseHolds(session), 0) << "it isn't the newcomer's";
  EXPECT_TRUE(holds(false));
}

TEST_F(RequestsTest, ReleasesTakeWhatTheyNameAndNothingElse) {
  const Pid a = program("/bin/a");
  const Pid b = program("/bin/b");
  const Hold first = engine().addHold("first", {}, {}, a);
  engine().addHold("second", {}, a, {});
  const Hold third = engine().addHold("third", {}, {}, b);
  EXPECT_EQ(engine().releaseHolds(a, third.id), 0);
  EXPECT_EQ(engine().releaseHolds(a, first.id), 1);
  EXPECT_EQ(engine().releaseHolds(a), 1);
  EXPECT_EQ(engine().releaseHold("nobody"), 0);
  EXPECT_EQ(engine().releaseHold(third.id), 1);
  EXPECT_EQ(engine().releaseHold({}), 0);
}

TEST_F(RequestsTest, AlwaysRemembersTheModeItReplaced) {
  engine().stayAwake(std::optional<int>{});
  EXPECT_EQ(announced.back().first, "Always awake");
  EXPECT_EQ(engine().config->modeBeforeAlways, Mode::automatic);
  engine().stayAwake(20000);
  EXPECT_EQ(announced.back().first, "Awake for 333.3 hours");
  EXPECT_EQ(engine().config->modeBeforeAlways, Mode::automatic);
  EXPECT_EQ(engine().config->alwaysUntil, unixSeconds(laptop.now()) + 7 * 24 * 3600);
  engine().stayAwake(laptop.now() + 30);
  EXPECT_EQ(announced.back().first, "Awake for 1 min");
  EXPECT_EQ(engine().statusLine().substr(0, 12), "Awake until ");
  EXPECT_TRUE(holds(true));
  laptop.advance(64);
  EXPECT_EQ(engine().config->mode, Mode::automatic);
  EXPECT_EQ(engine().config->alwaysUntil, std::nullopt);
  EXPECT_EQ(engine().config->modeBeforeAlways, std::nullopt);
  EXPECT_TRUE(holds(false));
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
  EXPECT_TRUE(holds(false));  // the agent works on, and is ignored
  engine().addHold("asked for", 1, {}, {});
  EXPECT_TRUE(holds(true));  // an explicit hold isn't
  engine().releaseHold({});
  lid(true);
  lid(false);
  laptop.advance(12);
  EXPECT_TRUE(holds(true));
}

TEST_F(RequestsTest, SleepNowInModeOffLeavesTheModeAlone) {
  Config off = engine().config;
  off.mode = Mode::off;
  engine().apply(off, true);
  engine().sleepNow();
  EXPECT_EQ(engine().config->mode, Mode::off);
  EXPECT_TRUE(engine().snoozed);
  EXPECT_TRUE(asleep());
}

TEST_F(RequestsTest, AFullWakeEndsTheSnooze) {
  engine().sleepNow();
  laptop.edit([](LaptopReport& report) { report.events.didWake = 1; });
  laptop.settle();
  EXPECT_FALSE(engine().snoozed);
}

TEST_F(RequestsTest, TheFloorCanBeWaivedAndComesBack) {
  battery(10);
  laptop.advance(10);
  engine().addHold("training", {}, {}, {});
  EXPECT_TRUE(holds(false));
  engine().overrideFloor(true);
  EXPECT_TRUE(holds(true));
  EXPECT_FALSE(engine().floorLatched);
  engine().overrideFloor(false);
  EXPECT_TRUE(holds(false));
  engine().overrideFloor(true);
  battery(10, true);
  laptop.advance(10);
  EXPECT_FALSE(engine().floorOverride);  // charging ends the waiver
}

TEST_F(RequestsTest, ListsAndLimitsOfTheConfig) {
  engine().setKeepsAwake("codex", false);
  engine().setKeepsAwake("codex", false);
  EXPECT_EQ(engine().config->trackOnly, std::vector<std::string>{"codex"});
  engine().setKeepsAwake("codex", true);
  EXPECT_TRUE(engine().config->trackOnly.empty());
  engine().addWatched({"ffmpeg", "ffmpeg"});
  engine().addWatched({"ffmpeg", "ffmpeg"});
  EXPECT_EQ(engine().config->watchedApps.size(), 1u);
  engine().removeWatched({"ffmpeg", "FFmpeg"});
  EXPECT_EQ(engine().config->watchedApps.size(), 1u);
  engine().removeWatched({"ffmpeg", "ffmpeg"});
  EXPECT_TRUE(engine().config->watchedApps.empty());
  engine().setWake(laptop.now() + 600, 3);
  EXPECT_EQ(engine().config->wakeForMinutes, 5);
  engine().setWake(std::nullopt, 2000);
  EXPECT_EQ(engine().config->wakeForMinutes, 1440);
  EXPECT_EQ(engine().config->wakeAt, std::nullopt);
  engine().setWake(std::nullopt, std::nullopt);
  EXPECT_EQ(engine().config->wakeForMinutes, 1440);
  engine().setCheckIn(20);
  EXPECT_EQ(engine().config->checkInMinutes, 0);
  engine().setCheckIn(15);
  EXPECT_EQ(engine().config->checkInMinutes, 15);
}

TEST_F(RequestsTest, HoldsOutliveARestartIfWhatBoundsThemDoes) {
  const Pid lives = program("/usr/bin/make");
  const Pid dies = program("/usr/bin/ninja");
  const Pid reused = program("/usr/bin/cargo");
  engine().addHold("until released", {}, {}, {});
  engine().addHold("two hours", 120, {}, {});
  engine().addHold("one minute", 1, {}, {});
  engine().addHold("lives", {}, lives, {});
  engine().addHold("dies", {}, dies, {});
  engine().addHold("reused", {}, reused, {});
  laptop.processes().exit(dies);
  laptop.processes().add(
      {.pid = reused, .parent = 1, .path = "/usr/bin/cargo", .arguments = {}, .workingDirectory = "/", .start = {}});
  laptop.passAsleep(Seconds{120});
  crashAndRestart();
  std::vector<std::string> reasons;
  for (const Hold& hold : *engine().holds) reasons.push_back(hold.reason);
  EXPECT_EQ(reasons, (std::vector<std::string>{"until released", "two hours", "lives"}));
  EXPECT_TRUE(holds(true));
}

TEST_F(RequestsTest, AProcessFromBeforeTheBootBoundsNothing) {
  const Pid make = program("/usr/bin/make");
  engine().addHold("build", {}, make, {});
  engine().addHold("owned", {}, {}, make);
  engine().addHold("free", {}, {}, {});
  std::string text = saved();
  laptop.powerLoss();
  owned.reset();
  laptop.files().put(state.path("runtime.json"), text);
  // The same number with a start time that happens to agree still belongs to another boot.
  laptop.processes().add(
      {.pid = make, .parent = 1, .path = "/usr/bin/make", .arguments = {}, .workingDirectory = "/", .start = {}});
  start();
  laptop.advance(2);
  ASSERT_EQ(engine().holds->size(), 1u);
  EXPECT_EQ(engine().holds->front().reason, "free");
}

}  // namespace
}  // namespace tovi
