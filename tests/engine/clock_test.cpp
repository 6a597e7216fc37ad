// The wall clock is set while something is under way: spans stay what they were.

#include <nlohmann/json.hpp>

#include "engine/World.h"
#include "safety/Heartbeat.h"

namespace tovi {
namespace {

constexpr double kDay = 86400;

// Each test begins anew for each step that somebody sets the clock by.
struct ClockStep : testing::TestWithParam<double>, World {
  const double step = GetParam();

  ClockStep() { config(R"({"quietMinutes": 2})"); }

  // How long it still stays awake, in seconds; looked at every ten.
  double staysAwake(double most = 4 * 3600) {
    double waited = 0;
    for (; sleepOff() && waited < most; waited += 10) laptop.advance(10);
    return waited;
  }
  void expectHalfAnHour(bool always, bool runsMeanwhile) {
    always ? start().stayAwake(30) : (void)start().addHold("training", 30, {}, {});
    laptop.advance(600);
    if (!runsMeanwhile) {
      owned->shutdown();
      owned.reset();
      laptop.restart();
    }
    laptop.stepClock(step);
    engine();
    EXPECT_NEAR(staysAwake(), 1200, 20);
  }
};

INSTANTIATE_TEST_SUITE_P(All, ClockStep, testing::Values(kDay, -kDay, 400 * kDay, -400 * kDay, 90, -90));

TEST_P(ClockStep, ATimedRequestHasAsLongToGoAsBefore) { expectHalfAnHour(false, true); }
TEST_P(ClockStep, ATimedAlwaysHasAsLongToGoAsBefore) { expectHalfAnHour(true, true); }
TEST_P(ClockStep, ARequestOutlivesAStepWhileNobodyRuns) { expectHalfAnHour(false, false); }
TEST_P(ClockStep, AnAlwaysOutlivesAStepWhileNobodyRuns) { expectHalfAnHour(true, false); }

// After a boot whose clock is behind nobody knows what is left of a span; a record that doesn't say when it was written
// is taken at its word, but not as one from the future.
TEST(ClockOfAnotherBoot, LeavesNoSpanThatMayBeOver) {
  for (const double length : {0.0, 1800.0}) {
    World world;
    world.start().addHold("training", 30, {}, {});
    world.laptop.advance(600);
    world.owned.reset();
    auto saved = nlohmann::json::parse(world.state.read("runtime.json").value());
    if (length > 0) saved["clock"].erase("at");
    world.laptop.powerLoss();
    world.laptop.files().put(world.state.path("runtime.json"), saved.dump());
    world.laptop.stepClock(-kDay);
    world.start();
    double waited = 0;
    for (; world.sleepOff() && waited < 4000; waited += 10) world.laptop.advance(10);
    EXPECT_NEAR(waited, length, 45) << "what was found switched off may stay so for half a minute";
  }
}

TEST_P(ClockStep, WorkGoesOnAndItsQuietTimeEndsInTime) {
  const Pid claude = agent();
  start();
  laptop.advance(60);
  laptop.stepClock(step);
  laptop.advance(2);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().holdReason.get(), "Claude Code is working");
  laptop.advance(60);
  laptop.processes().exit(claude);
  laptop.advance(30);
  laptop.stepClock(step);
  EXPECT_NEAR(staysAwake(), 80, 40);
}

TEST_P(ClockStep, AClosedSessionIsToldAsItWas) {
  start().addHold("training", {}, {}, {});
  lid(true);
  laptop.advance(300);
  laptop.stepClock(step);
  laptop.advance(300);
  lid(false);
  EXPECT_NEAR(engine().stats->sessions.at(0).closedMinutes, 10, 0.2);
  EXPECT_LT(std::abs(engine().stats->sessions[0].whSaved), 1);
}

TEST_P(ClockStep, AnAdoptedSessionIsDroppedInTime) {
  state.touch(state.path("hold"));
  laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
  start();
  laptop.stepClock(step);
  EXPECT_NEAR(staysAwake(), 30, 15);
}

TEST_P(ClockStep, ASleepThatDoesNotComeIsAskedForAtIntervals) {
  refuse({"pmset sleepnow"});
  start().addHold("training", {}, {}, {});
  laptop.advance(12);
  lid(true);
  laptop.advance(12);
  laptop.forgetCommands();
  engine().releaseHold(std::nullopt);
  laptop.stepClock(step);
  laptop.advance(30);
  EXPECT_EQ(sleepsAsked(), 1u);
  laptop.advance(200);
  EXPECT_EQ(sleepsAsked(), 4u);
  laptop.advance(600);
  EXPECT_EQ(sleepsAsked(), 4u);
}

TEST_P(ClockStep, ABeatOfTheFutureIsNoSignOfLife) {
  start();
  laptop.advance(10);
  EXPECT_TRUE(Heartbeat::appIsAlive(laptop.machine(), state));
  laptop.stepClock(-kDay);
  EXPECT_FALSE(Heartbeat::appIsAlive(laptop.machine(), state)) << "it may be stopped";
  laptop.advance(3);
  EXPECT_TRUE(Heartbeat::appIsAlive(laptop.machine(), state));
}

}  // namespace
}  // namespace tovi
