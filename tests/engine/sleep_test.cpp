// Going to sleep with a wake planned, and what each wake becomes.

#include <gtest/gtest.h>

#include "engine/World.h"
#include "safety/Watchdog.h"

namespace tovi {
namespace {

TEST(WakePlan, ChoosesTheStepThatAnIntervalJustReaches) {
  struct Row {
    std::optional<double> untilWake;
    int checkIn;
    std::optional<int> step;
  };
  for (const Row& row :
       {Row{{}, 0, {}}, Row{7200, 0, 3600}, Row{3570, 0, 3600}, Row{3569, 0, 1800}, Row{20, 0, 60}, Row{-500, 0, 60},
        Row{269, 0, 60}, Row{270, 0, 300}, Row{{}, 15, 900}, Row{{}, 30, 1800}, Row{{}, 60, 3600}, Row{100, 30, 60},
        Row{7200, 15, 900}, Row{-500, 15, 60}, Row{1e300, 0, 3600}}) {
    EXPECT_EQ(WakePlan::nextStep(row.untilWake, row.checkIn), row.step) << row.untilWake.value_or(-1) << row.checkIn;
  }
}

struct SleepTest : testing::Test, World {
  void sleeps() {
    laptop.edit([](LaptopReport& report) { report.events.willSleep++; });
    laptop.settle();
  }
  void powersOn() {
    laptop.edit([](LaptopReport& report) { report.events.poweredOn++; });
    laptop.settle();
  }
  void checkIn() {
    config(R"({"checkInMinutes": 30})");
    start();
    lid(true);
    powersOn();
  }
  void wakeIn(double seconds) { engine().setWake(laptop.now() + seconds, 20); }
  std::optional<double> planned() {
    const auto at = laptop.switches().nextWake;
    return at ? std::optional{*at - unixSeconds(laptop.now())} : std::nullopt;
  }
};

TEST_F(SleepTest, PlansCheckInsWithTheLidShutOnlyAndAScheduledWakeAlways) {
  start();
  engine().setCheckIn(20);
  EXPECT_EQ(engine().config->checkInMinutes, 0) << "not one of the four";
  engine().setCheckIn(15);
  sleeps();
  EXPECT_EQ(planned(), std::nullopt) << "the lid is open";
  wakeIn(7200);
  sleeps();
  EXPECT_EQ(planned(), 3600);
  EXPECT_EQ(engine().nextWakeAt.get(), laptop.now() + 3600);
  lid(true);
  sleeps();
  EXPECT_EQ(planned(), 900);
}

TEST_F(SleepTest, ARefusedWakeIsNotPlannedAndSetUpIsAskedAgain) {
  start();
  wakeIn(600);
  ASSERT_TRUE(engine().wakeReady);
  refuse({"pmset relative"});
  sleeps();
  EXPECT_EQ(engine().nextWakeAt.get(), std::nullopt);
  EXPECT_TRUE(engine().wakeReady) << "the rule still stands; the tool failed by itself";
  laptop.edit([](LaptopReport& report) { report.privileged = false; });
  sleeps();
  ASSERT_FALSE(engine().wakeReady);
  const auto before = laptop.commands().size();
  sleeps();
  EXPECT_EQ(laptop.commands().size(), before) << "not even tried";
}

TEST_F(SleepTest, AWakeThatIsNearEnoughBecomesAHoldAndFiresOnce) {
  start();
  lid(true);
  wakeIn(100);
  powersOn();
  EXPECT_TRUE(engine().checkInUntil && engine().config->wakeAt) << "too early";
  laptop.advance(30);
  powersOn();
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(engine().config->wakeAt, std::nullopt);
  EXPECT_EQ(engine().holds->at(0).reason, "Scheduled wake");
  EXPECT_EQ(engine().holds->at(0).until, laptop.now() + 1200);
  laptop.advance(1204);
  EXPECT_TRUE(holds(false) && asleep());
}

TEST_F(SleepTest, ACheckInStaysUpFor25SecondsAndGoesBackToSleep) {
  int calls = 0;
  config(R"({"checkInMinutes": 30})");
  start().onCheckIn = [&] { ++calls; };
  lid(true);
  powersOn();
  EXPECT_TRUE(sleepOff() && marker());
  ASSERT_EQ(laptop.activities().size(), 1u);
  EXPECT_EQ(laptop.activities()[0].reason, "Checking for phone commands");
  powersOn();
  EXPECT_EQ(calls, 1) << "one at a time";
  laptop.advance(25.4);
  EXPECT_TRUE(sleepOff());
  laptop.advance(0.2);
  EXPECT_FALSE(sleepOff() || marker());
  EXPECT_TRUE(asleep());
  EXPECT_TRUE(laptop.activities().empty());
  EXPECT_NEAR(planned().value_or(0), 1800, 1) << "the chain goes on";
}

TEST_F(SleepTest, AHoldThatBeginsInACheckInTakesOver) {
  checkIn();
  engine().addHold("woken", 60.0, {}, {});
  laptop.advance(40);
  EXPECT_TRUE(holds(true));
  EXPECT_FALSE(asleep());
  engine().releaseHold(std::nullopt);
  EXPECT_TRUE(asleep());
  powersOn();
  EXPECT_TRUE(engine().checkInUntil) << "the next one isn't taken for the one that the hold ended";
}

TEST_F(SleepTest, AWakeThatPassedWhileThePersonWorkedIsDropped) {
  start();
  wakeIn(600);
  laptop.advance(600 + 3500);
  EXPECT_TRUE(engine().config->wakeAt);
  laptop.advance(200);
  EXPECT_FALSE(engine().config->wakeAt);
}

TEST_F(SleepTest, NoCheckInWhereItIsNotAllowed) {
  struct Row {
    const char* name;
    std::function<void(SleepTest&)> arrange;
  };
  for (const Row& row : {Row{"lid open", [](SleepTest& t) { t.lid(false); }},
                         Row{"holding", [](SleepTest& t) { t.engine().addHold("work", 60.0, {}, {}); }},
                         Row{"nothing wanted", [](SleepTest& t) { t.engine().setCheckIn(0); }},
                         Row{"not set up", [](SleepTest& t) { t.engine().setupReady = false; }},
                         Row{"refused", [](SleepTest& t) { t.refuse({"pmset -a disablesleep 1"}); }},
                         Row{"without a marker", [](SleepTest& t) { t.laptop.files().setFull(true); }}}) {
    SCOPED_TRACE(row.name);
    laptop.restart();
    owned.reset();
    config(R"({"checkInMinutes": 30})");
    refuse({});
    start();
    engine().releaseHold(std::nullopt);
    lid(true);
    row.arrange(*this);
    const bool held = sleepOff();
    powersOn();
    EXPECT_FALSE(engine().checkInUntil);
    EXPECT_TRUE(sleepOff() == held && marker() == held);
  }
}

TEST_F(SleepTest, ShutdownInACheckInSwitchesSleepBackOn) {
  checkIn();
  ASSERT_TRUE(sleepOff());
  engine().shutdown();
  EXPECT_TRUE(holds(false));
}

TEST_F(SleepTest, AReleaseRefusedAfterACheckInIsTriedAgain) {
  checkIn();
  refuse({"pmset -a disablesleep 0"});
  laptop.advance(26);
  EXPECT_TRUE(sleepOff() && marker());
  EXPECT_TRUE(engine().pendingRelease);
  refuse({});
  laptop.advance(12);
  EXPECT_FALSE(sleepOff() || marker());
  EXPECT_TRUE(asleep()) << "asked for once more";
}

// Wherever the process dies in a check-in, the watchdog finds a marker for a switch that is off.
TEST_F(SleepTest, ACrashInACheckInIsCleanedUp) {
  for (std::int64_t number = 1;; ++number) {
    World world;
    world.config(R"({"checkInMinutes": 30})");
    world.start();
    world.lid(true);
    world.laptop.faults().crashAt(world.laptop.faults().operations() + number, MemoryFaults::When::after);
    try {
      world.laptop.edit([](LaptopReport& report) { report.events.poweredOn++; });
      world.laptop.advance(26);
      ASSERT_GT(number, 4) << "a check-in has some operations";
      break;
    } catch (const Crash&) {
    }
    ASSERT_TRUE(world.marker() || !world.sleepOff()) << number;
    world.owned.reset();
    world.laptop.restart();
    world.laptop.advance(120);
    Watchdog::run(world.laptop.machine(), world.state, false);
    EXPECT_FALSE(world.sleepOff() || world.marker()) << number;
  }
}

TEST_F(SleepTest, ASleepThatThePersonOrdersLaterIsNotTheSessionsOwn) {
  start().addHold("work", {}, {}, {});
  lid(true);
  laptop.advance(600);
  refuse({"pmset sleepnow"});
  engine().releaseHold(std::nullopt);
  lid(false);
  laptop.advance(3600);
  sleeps();
  EXPECT_EQ(engine().receipt.get().value().sleptAt, std::nullopt);
}

}  // namespace
}  // namespace tovi
