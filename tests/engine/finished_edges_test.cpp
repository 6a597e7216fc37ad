// Where finished work and the account of sessions change their mind: just below a limit, and just at it.

#include <gtest/gtest.h>

#include "engine/Desk.h"

namespace tovi {
namespace {

TEST(FinishedEdges, AStretchOfAMinuteIsToldAfterTwoQuietMinutes) {
  struct Row {
    double worked, quiet;  // seconds
    bool told;
  };
  for (const Row& row : {Row{300, 119, false}, Row{300, 120, true}, Row{59.9, 120, false}, Row{60, 120, true}}) {
    World world;
    Engine& engine = world.start();
    double told = -1;
    engine.onFinished = [&](const std::string&, double minutes, bool) { told = minutes; };
    const Date quietAt = world.laptop.now() + -row.quiet;
    engine.idlePending["claude-code"] = {quietAt + -row.worked, quietAt};
    engine.refreshFast();
    EXPECT_EQ(told >= 0, row.told) << row.worked << " " << row.quiet;
    if (row.told) {
      EXPECT_NEAR(told, row.worked / 60, 1e-9);
    }
  }
}

TEST(FinishedEdges, APassiveCopyTellsNobody) {
  World world;
  Engine passive(world.laptop.machine(), true);
  passive.onFinished = [](const std::string&, double, bool) { FAIL(); };
  passive.idlePending["claude-code"] = {world.laptop.now() + -600.0, world.laptop.now() + -300.0};
  passive.refreshFast();
  EXPECT_TRUE(passive.idlePending.empty());
}

TEST(FinishedEdges, AHoldThatBeginsWithTheLidStillShutOpensAnAccountOfItsOwn) {
  Desk desk(R"({"mode": "off"})");
  desk.start().addHold("first", {}, {}, {});
  desk.lid(true);
  desk.laptop.advance(300);
  desk.engine().releaseHold(std::nullopt);
  desk.laptop.advance(10);
  desk.engine().addHold("second", {}, {}, {});
  EXPECT_NEAR(desk.engine().stats->sessions.at(0).closedMinutes, 5, 0.1);
  desk.laptop.advance(120);
  desk.lid(false);
  EXPECT_NEAR(desk.engine().stats->sessions.at(1).closedMinutes, 2, 0.1);
}

TEST(FinishedEdges, AClockThatWasSetMovesARequestOnlyOnce) {
  World world;
  world.start();
  for (const double step : {3600.0, -3600.0}) {
    world.laptop.stepClock(step);
    const Hold hold = world.engine().addHold("download", 30.0, {}, {});
    EXPECT_EQ(world.engine().holds->back().until, world.laptop.now() + 1800);
    world.laptop.advance(4);
    EXPECT_EQ(world.engine().releaseHold(hold.id), 1) << step;
  }
}

}  // namespace
}  // namespace tovi
