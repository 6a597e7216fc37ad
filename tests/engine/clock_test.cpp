// The wall clock is set while something is under way: spans stay what they were.

#include "engine/World.h"
#include "safety/Heartbeat.h"

namespace tovi {
namespace {

constexpr double kDay = 86400;
constexpr double kSteps[] = {kDay, -kDay, 400 * kDay, -400 * kDay, 90, -90};

struct Timed : World {
  Timed() { config(R"({"quietMinutes": 2})"); }

  void askForHalfAnHour(bool always) {
    if (always) {
      start().stayAwake(30);
    } else {
      start().addHold("training", 30, {}, {});
    }
  }

  // How long it still stays awake, in seconds; looked at every ten.
  double staysAwake(double most = 4 * 3600) {
    double waited = 0;
    for (; sleepOff() && waited < most; waited += 10) laptop.advance(10);
    return waited;
  }
};

TEST(ClockStep, ATimedRequestHasAsLongToGoAsBefore) {
  for (const double step : kSteps) {
    for (const bool always : {false, true}) {
      Timed world;
      world.askForHalfAnHour(always);
      world.laptop.advance(600);
      world.laptop.stepClock(step);
      EXPECT_NEAR(world.staysAwake(), 1200, 20) << step << (always ? ", always" : ", hold");
    }
  }
}

TEST(ClockStep, ATimedRequestHasAsLongToGoAlsoIfNobodyRanMeanwhile) {
  for (const double step : kSteps) {
    for (const bool always : {false, true}) {
      Timed world;
      world.askForHalfAnHour(always);
      world.laptop.advance(600);
      world.owned->shutdown();
      world.owned.reset();
      world.laptop.restart();
      world.laptop.stepClock(step);
      world.start();
      EXPECT_NEAR(world.staysAwake(), 1200, 20) << step << (always ? ", always" : ", hold");
    }
  }
}

TEST(ClockStep, ARequestOfAnEarlierBootIsNotFromTheFuture) {
  Timed world;
  world.start().addHold("training", 30, {}, {});
  world.laptop.advance(600);
  world.owned.reset();
  const auto saved = world.state.read("runtime.json").value();
  world.laptop.powerLoss();
  world.laptop.files().put(world.state.path("runtime.json"), saved);
  world.laptop.stepClock(-kDay);
  world.start();
  EXPECT_NEAR(world.staysAwake(), 1800, 20);
}

TEST(ClockStep, WorkGoesOnAndItsQuietTimeEndsInTime) {
  for (const double step : kSteps) {
    Timed world;
    const Pid agent = world.agent();
    world.start();
    world.laptop.advance(60);
    ASSERT_TRUE(world.sleepOff());
    world.laptop.stepClock(step);
    world.laptop.advance(2);
    EXPECT_TRUE(world.sleepOff()) << step;
    EXPECT_EQ(world.engine().holdReason.get(), "Claude Code is working") << step;
    world.laptop.advance(60);
    world.laptop.processes().exit(agent);
    world.laptop.advance(30);
    world.laptop.stepClock(step);
    EXPECT_NEAR(world.staysAwake(), 80, 40) << step;
  }
}

TEST(ClockStep, AClosedSessionIsToldAsItWas) {
  for (const double step : {kDay, -kDay}) {
    Timed world;
    world.start().addHold("training", {}, {}, {});
    world.laptop.advance(12);
    world.lid(true);
    world.laptop.advance(300);
    world.laptop.stepClock(step);
    world.laptop.advance(300);
    world.lid(false);
    ASSERT_EQ(world.engine().stats->sessions.size(), 1u) << step;
    EXPECT_NEAR(world.engine().stats->sessions[0].closedMinutes, 10, 0.2) << step;
    EXPECT_LT(std::abs(world.engine().stats->sessions[0].whSaved), 1) << step;
  }
}

TEST(ClockStep, AnAdoptedSessionIsDroppedInTime) {
  for (const double step : kSteps) {
    Timed world;
    world.state.touch(world.state.path("hold"));
    world.laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
    world.start();
    world.laptop.stepClock(step);
    EXPECT_NEAR(world.staysAwake(), 30, 15) << step;
  }
}

TEST(ClockStep, ASleepThatDoesNotComeIsAskedForAtIntervals) {
  for (const double step : kSteps) {
    Timed world;
    world.refuse({"pmset sleepnow"});
    world.start().addHold("training", {}, {}, {});
    world.laptop.advance(12);
    world.lid(true);
    world.laptop.advance(12);
    world.laptop.forgetCommands();
    world.engine().releaseHold(std::nullopt);
    world.laptop.stepClock(step);
    world.laptop.advance(30);
    EXPECT_EQ(world.laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset sleepnow"), 1u) << step;
    world.laptop.advance(200);
    EXPECT_EQ(world.laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset sleepnow"), 4u) << step;
  }
}

TEST(ClockStep, ABeatOfTheFutureIsNoSignOfLife) {
  Timed world;
  world.start();
  world.laptop.advance(10);
  EXPECT_TRUE(Heartbeat::appIsAlive(world.laptop.machine(), world.state));
  world.laptop.stepClock(-kDay);
  EXPECT_FALSE(Heartbeat::appIsAlive(world.laptop.machine(), world.state)) << "it may be stopped";
  world.laptop.advance(3);
  EXPECT_TRUE(Heartbeat::appIsAlive(world.laptop.machine(), world.state));
}

}  // namespace
}  // namespace tovi
