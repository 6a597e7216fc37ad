// What a session with the lid closed leaves in the account: finished work, sessions, totals, and the quick estimate.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "engine/Desk.h"

namespace tovi {
namespace {

struct FinishedWork : testing::Test, World {
  struct Told {
    std::string name;
    double minutes;
    bool gone;
  };
  std::vector<Told> told;
  Pid claude = 0;

  void begin() {
    start();
    engine().onFinished = [this](const std::string& name, double minutes, bool gone) {
      told.push_back({name, minutes, gone});
    };
    claude = agent();
  }
  void rest() { laptop.processes().setRates(claude, 0, 0); }
  void work() { laptop.processes().setRates(claude, 2, 0.5); }
};

TEST_F(FinishedWork, ABurstUnderAMinuteEndsInSilence) {
  begin();
  laptop.advance(30);
  ASSERT_FALSE(engine().workingSince.empty());
  rest();
  laptop.advance(300);
  EXPECT_TRUE(engine().workingSince.empty());
  EXPECT_TRUE(engine().idlePending.empty());
  EXPECT_TRUE(told.empty());
}

TEST_F(FinishedWork, APauseUnderTwoMinutesDoesNotSplitAStretch) {
  begin();
  laptop.advance(100);
  const Date since = engine().workingSince.at("claude-code");
  rest();
  laptop.advance(100);
  ASSERT_TRUE(engine().idlePending.contains("claude-code"));
  work();
  laptop.advance(60);
  EXPECT_EQ(engine().workingSince.at("claude-code"), since);
  EXPECT_TRUE(told.empty());
  rest();
  laptop.advance(200);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NEAR(told[0].minutes, 260 / 60.0, 0.6) << "the two quiet minutes aren't work";
  EXPECT_FALSE(told[0].gone);
}

TEST_F(FinishedWork, AnAgentThatLeftIsToldByItsLastName) {
  begin();
  laptop.advance(120);
  laptop.processes().exit(claude);
  laptop.advance(170);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].name, "Claude Code");
  EXPECT_TRUE(told[0].gone);
}

TEST_F(FinishedWork, ShownOnlyAgentsAreToldTooButRequestsAreNot) {
  config(R"({"trackOnly": ["claude-code"], "quietMinutes": 1})");
  begin();
  const Pid brake = program("/usr/local/bin/handbrake");
  laptop.edit([&](LaptopReport& report) {
    AssertionRecord request;
    request.pid = brake;
    request.processName = "handbrake";
    request.trueType = "PreventUserIdleSystemSleep";
    request.name = "encoding";
    request.startedAt = laptop.now();
    report.assertions.push_back(request);
  });
  laptop.advance(120);
  for (const auto& [id, since] : engine().workingSince) EXPECT_EQ(id, "claude-code");
  rest();
  laptop.edit([](LaptopReport& report) { report.assertions.clear(); });
  laptop.advance(200);
  ASSERT_EQ(told.size(), 1u);
}

struct Account : testing::Test, Desk {
  // At work, with an engine that has seen it.
  void begin() {
    start();
    work();
  }
  // Closes the lid for so long, awake, and opens it again.
  void session(double seconds) {
    lid(true);
    laptop.advance(seconds);
    lid(false);
  }
  const std::vector<SavingsStats::Session>& kept() { return engine().stats->sessions; }
};

TEST_F(Account, HalfAMinuteLeavesNoTraceButItsReceipt) {
  begin();
  session(30);
  EXPECT_TRUE(kept().empty());
  EXPECT_TRUE(engine().receipt.get()->openedAt);
  session(31);
  ASSERT_EQ(kept().size(), 1u);
  EXPECT_EQ(kept()[0].date, engine().receipt.get()->closedAt);
  EXPECT_EQ(kept()[0].agent, "Claude Code");
  EXPECT_EQ(kept()[0].startPercent, 80);
  EXPECT_EQ(kept()[0].endPercent, 80);
  EXPECT_TRUE(state.exists("stats.json"));
}

TEST_F(Account, SavedEnergyIsWhatTheAppsUsedToDrawLessWhatTheyDraw) {
  laptop.processes().setRates(notes, 6, 1);
  engine();
  laptop.advance(60);  // their usual draw is learned
  const double usual = engine().baseline.at(kNotes);
  EXPECT_NEAR(usual, 6.5, 0.1) << "Notes and its helper";
  ASSERT_TRUE(holds(true));
  lid(true);
  laptop.advance(600);
  // Paused Notes, Docker slowed from 0.5 W to an eighth.
  EXPECT_NEAR(engine().liveSavingW, usual + 0.375, 0.1);
  EXPECT_EQ(engine().baseline.at(kNotes), usual) << "what is paused isn't usual";
  lid(false);
  ASSERT_EQ(kept().size(), 1u);
  EXPECT_NEAR(kept()[0].whSaved, (usual + 0.375) / 6, 0.15);
  EXPECT_NEAR(kept()[0].closedMinutes, 10, 0.05);
  EXPECT_EQ(engine().liveSavingW, 0);
  EXPECT_EQ(engine().sessionWh, 0);

  laptop.processes().exit(notes);  // gone from the list: it adds nothing
  laptop.processes().exit(notesHelper);
  engine().targeted = std::map<std::string, AppRule>{{kNotes, AppRule::pause}};
  lid(true);
  laptop.advance(60);
  EXPECT_LT(engine().liveSavingW, 1);
}

TEST_F(Account, AMeasurementOutranksTheEstimateWhileSomethingIsSaved) {
  laptop.defaults().set("powerEffects2", std::map<std::string, double>{{"total", 4.5}});
  begin();
  lid(true);
  laptop.advance(60);
  EXPECT_EQ(engine().liveSavingW, 4.5);
  Config next = engine().config;
  next.preset = Preset::speed;
  engine().apply(next, false);
  laptop.advance(60);
  EXPECT_EQ(engine().liveSavingW, 0) << "nothing is slowed and Low Power Mode is off";
}

TEST(Sleep, IsAvoidedEnergyUpToWhatTheBatteryHeld) {
  struct Case {
    double hours;
    double watts;
    int percent;
    double fullWh;
    double avoided;
  };
  for (const Case& row : {Case{10, 100, 50, 70, 35}, Case{10, 5, 20, 50, 10}, Case{2, 5, 80, 70, 10}}) {
    Desk desk;
    desk.laptop.edit([&](LaptopReport& report) {
      report.battery->currentCapacity = row.percent;
      report.battery->voltage = 10'000;
      report.battery->instantAmperage = -static_cast<std::int64_t>(row.watts * 100);
      report.battery->timeRemaining.reset();
    });
    desk.laptop.defaults().set("fullWh", row.fullWh);
    desk.start();
    desk.work();
    desk.lid(true);
    desk.laptop.advance(120);
    desk.laptop.processes().setRates(desk.claude, 0, 0);
    desk.laptop.advance(500);
    ASSERT_TRUE(desk.asleep());
    const Date asked = desk.engine().sleepInfo->first;
    desk.laptop.passAsleep(Seconds{row.hours * 3600});
    desk.lid(false);
    ASSERT_EQ(desk.engine().stats->sessions.size(), 1u);
    const auto& session = desk.engine().stats->sessions[0];
    EXPECT_NEAR(session.whAvoided, row.avoided, row.avoided * 0.05);
    EXPECT_NEAR(session.sleptMinutes, row.hours * 60, 10);
    EXPECT_NEAR(session.closedMinutes, secondsBetween(session.date, asked) / 60, 0.01);
    EXPECT_EQ(desk.engine().sleepInfo, std::nullopt);
  }
}

TEST_F(Account, SleepThatWasAskedForAndNeverCameIsNoSleep) {
  begin();
  lid(true);
  laptop.advance(60);
  refuse({"pmset sleepnow"});
  engine().sleepNow();
  laptop.advance(3600);
  ASSERT_FALSE(asleep());
  lid(false);
  ASSERT_EQ(kept().size(), 1u);
  EXPECT_EQ(kept()[0].sleptMinutes, 0);
  EXPECT_EQ(kept()[0].whAvoided, 0);
  EXPECT_NEAR(kept()[0].closedMinutes, 1, 0.1) << "awake time ends where sleep was asked for";
}

SavingsStats::Session oneSession(Date date, double whSaved = 1, double whAvoided = 2) {
  return {date, 60, whSaved, 30, whAvoided, 80, 70, "Claude Code"};
}

TEST(Statistics, The401stSessionDropsTheFirstAndTheTotalsKeepIt) {
  World world;
  SavingsStats stats;
  const Date begin = world.laptop.now();
  for (int at = 0; at < 400; ++at) stats.add(oneSession(begin + at));
  EXPECT_EQ(stats.sessions.size(), 400u);
  EXPECT_EQ(stats.sessions[0].date, begin);
  stats.add(oneSession(begin + 400));
  EXPECT_EQ(stats.sessions.size(), 400u);
  EXPECT_EQ(stats.sessions[0].date, begin + 1);
  EXPECT_EQ(stats.allTimeWhSaved, 401);
  EXPECT_EQ(stats.allTimeWhAvoided, 802);
  ASSERT_TRUE(stats.save(world.state));
  EXPECT_EQ(SavingsStats::load(world.state), stats);
}

TEST(Statistics, AWeekIsSevenDaysOfSecondsWhateverTheClockDoes) {
  const Date now = dateFromUnix(1'774'807'200);  // 2026-03-29 18:00 UTC, the day the clocks change in Europe
  SavingsStats stats;
  for (const double age : {0.0, 604'799.0, 604'800.0, 700'000.0, -5000.0}) stats.add(oneSession(now + -age));
  for (const char* zone : {"UTC", "Europe/Berlin", "America/New_York"}) {
    ::setenv("TZ", zone, 1);
    ::tzset();
    EXPECT_EQ(stats.week(now), (SavingsStats::Week{3, 6, 90, 180, 3})) << zone << ": one of the future counts";
  }
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(stats.week(now + -86'400.0).count, 3 + 1) << "the clock was set back by a day";
}

TEST(Statistics, ABrokenFileCountsAsNoneAndIsReplacedByTheNextSession) {
  const std::string good =
      R"({"sessions": [{"date": "2026-01-05T07:00:00Z", "closedMinutes": 1, "whSaved": 1, "sleptMinutes": 0,
          "whAvoided": 0}], "allTimeWhSaved": 5, "allTimeWhAvoided": 6})";
  const auto without = [&](const std::string& what) {
    std::string text = good;
    return text.replace(text.find(what), what.size(), "\"other");
  };
  for (const std::string& text :
       {std::string("not JSON"), std::string("[]"), without("\"allTimeWhAvoided"), without("\"allTimeWhSaved"),
        without("\"whSaved"), without("\"date"), without("\"sleptMinutes")}) {
    Desk desk;
    desk.laptop.files().put(desk.state.path("stats.json"), text);
    desk.start();
    desk.work();
    EXPECT_EQ(desk.engine().stats.get(), SavingsStats{}) << text;
    desk.lid(true);
    desk.laptop.advance(60);
    desk.lid(false);
    EXPECT_EQ(SavingsStats::load(desk.state).sessions.size(), 1u) << text;
    EXPECT_EQ(desk.engine().warning.get(), std::nullopt);
  }
  World world;
  world.laptop.files().put(world.state.path("stats.json"), good);
  EXPECT_EQ(world.engine().stats->sessions.size(), 1u);
  EXPECT_EQ(world.engine().stats->allTimeWhSaved, 5);
}

TEST(Statistics, AFullDiskLosesNoSession) {
  Desk desk;
  desk.start();
  desk.work();
  const auto session = [&] {
    desk.lid(true);
    desk.laptop.advance(60);
    desk.lid(false);
  };
  session();
  const SavingsStats first = SavingsStats::load(desk.state);
  ASSERT_EQ(first.sessions.size(), 1u);
  desk.laptop.files().setFull(true);
  session();
  EXPECT_EQ(SavingsStats::load(desk.state), first) << "what was there stays whole";
  EXPECT_EQ(desk.engine().stats->sessions.size(), 2u);
  desk.laptop.files().setFull(false);
  desk.laptop.advance(120);
  EXPECT_EQ(SavingsStats::load(desk.state).sessions.size(), 2u) << "written once there was room";
  desk.laptop.files().remove(desk.state.path("stats.json"));
  desk.laptop.advance(600);
  EXPECT_FALSE(desk.state.exists("stats.json"));
  session();
  EXPECT_EQ(SavingsStats::load(desk.state).sessions.size(), 3u) << "from memory";
}

TEST(Statistics, ASecondApplicationWritesNothing) {
  Desk desk;
  SavingsStats stats;
  stats.add(oneSession(dateFromUnix(1'767'600'000)));
  ASSERT_TRUE(stats.save(desk.state));
  Engine second(desk.laptop.machine(), true);
  EXPECT_EQ(second.stats->sessions.size(), 1u);
  second.holding = true;
  second.lidChanged(true);
  desk.laptop.advance(120);
  second.lidChanged(false);
  second.shutdown();
  EXPECT_EQ(SavingsStats::load(desk.state), stats);
}

struct QuickEstimate : testing::Test, Desk {
  QuickEstimate() {
    laptop.processes().setRates(notes, 6, 1);
    laptop.processes().setRates(docker, 2, 0.5);
    start();
    work();
  }
};

TEST_F(QuickEstimate, SlowsForSecondsAndPutsEverythingBack) {
  engine().measureSavings();
  EXPECT_TRUE(engine().measuring);
  laptop.advance(2.9);
  EXPECT_EQ(treatment(notes), "normal");
  laptop.advance(0.2);
  EXPECT_EQ(treatment(notes), "paused");
  EXPECT_EQ(treatment(docker), "slow");
  laptop.advance(3.5);
  EXPECT_EQ(treatment(notes), "paused") << "the repair of leftovers waits";
  laptop.advance(0.5);
  EXPECT_FALSE(engine().measuring);
  EXPECT_EQ(changed(), "");
  const SavingsTest& test = *engine().lastTest.get();
  ASSERT_EQ(test.apps.size(), 2u);
  EXPECT_EQ(test.apps[0].name, "Notes");
  EXPECT_NEAR(test.apps[0].before, 6.5, 0.01);
  EXPECT_NEAR(test.apps[0].after, 0, 0.01);
  EXPECT_NEAR(test.apps[1].after, 0.5, 0.01);
  EXPECT_NEAR(test.before, 8.5, 0.01);
  EXPECT_NEAR(test.after, 0.5, 0.01);
  EXPECT_EQ(test.date, laptop.now() + -0.1);
}

TEST_F(QuickEstimate, ALidThatClosesMeanwhileKeepsWhatItDid) {
  engine().measureSavings();
  laptop.advance(1);
  lid(true);
  laptop.advance(10);
  EXPECT_FALSE(engine().measuring);
  EXPECT_EQ(treatment(notes), "paused");
  engine().measureSavings();
  EXPECT_FALSE(engine().measuring) << "it is for the open lid";
  lid(false);
  EXPECT_EQ(changed(), "");
}

TEST_F(QuickEstimate, NothingToSlowIsZeroAndNoFailure) {
  engine().setPreset(Preset::speed);
  engine().measureSavings();
  laptop.advance(8);
  EXPECT_TRUE(engine().lastTest.get()->apps.empty());
  EXPECT_EQ(engine().lastTest.get()->before, 0);
}

}  // namespace
}  // namespace tovi
