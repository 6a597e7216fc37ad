// What a session with the lid closed leaves in the account: finished work, sessions, totals, and the quick estimate.

#include <gtest/gtest.h>

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
    start().onFinished = [this](const std::string& name, double minutes, bool gone) {
      told.push_back({name, minutes, gone});
    };
    claude = agent();
  }
  void rest() { laptop.processes().setRates(claude, 0, 0); }
};

TEST_F(FinishedWork, APauseUnderTwoMinutesDoesNotSplitAStretch) {
  begin();
  laptop.advance(100);
  const Date since = engine().workingSince.at("claude-code");
  rest();
  laptop.advance(100);
  ASSERT_TRUE(engine().idlePending.contains("claude-code"));
  laptop.processes().setRates(claude, 2, 0.5);
  laptop.advance(60);
  EXPECT_EQ(engine().workingSince.at("claude-code"), since);
  EXPECT_TRUE(told.empty());
  rest();
  laptop.advance(200);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NEAR(told[0].minutes, 260 / 60.0, 0.6) << "the two quiet minutes aren't work";
  EXPECT_FALSE(told[0].gone);
}

TEST_F(FinishedWork, AnAgentThatLeftIsToldByItsLastNameButARequestIsNot) {
  AssertionRecord request;
  request.pid = program("/usr/local/bin/handbrake");
  request.processName = "handbrake";
  request.trueType = "PreventUserIdleSystemSleep";
  laptop.edit([&](LaptopReport& report) { report.assertions.push_back(request); });
  config(R"({"trackOnly": ["claude-code"]})");  // only shown, and told all the same
  begin();
  laptop.advance(120);
  laptop.processes().exit(claude);
  laptop.edit([](LaptopReport& report) { report.assertions.clear(); });
  laptop.advance(200);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].name, "Claude Code");
  EXPECT_TRUE(told[0].gone);
}

struct Account : testing::Test, Desk {
  // Closes the lid for so long, awake, and opens it again.
  void session(double seconds) {
    lid(true);
    laptop.advance(seconds);
    lid(false);
  }
  const std::vector<SavingsStats::Session>& kept() { return engine().stats->sessions; }
};

TEST_F(Account, HalfAMinuteLeavesNoTraceButItsReceipt) {
  start();
  session(30);
  EXPECT_TRUE(kept().empty());
  EXPECT_TRUE(engine().receipt.get()->openedAt);
  session(31);
  EXPECT_EQ(announced.back(), std::pair(std::string("Welcome back"), std::string("Stayed awake 1 min · used 0%")));
  EXPECT_EQ(kept().at(0).date, engine().receipt.get()->closedAt);
  EXPECT_EQ(kept()[0].agent, "Claude Code");
}

TEST_F(Account, SavedEnergyIsWhatTheAppsUsedToDrawLessWhatTheyDraw) {
  laptop.processes().setRates(notes, 6, 1);
  engine();
  laptop.advance(60);  // their usual draw is learned
  const double usual = engine().baseline.at(kNotes);
  EXPECT_NEAR(usual, 6.5, 0.1) << "Notes and its helper";
  lid(true);
  laptop.advance(600);
  // Paused Notes, Docker slowed from 0.5 W to an eighth.
  EXPECT_NEAR(engine().liveSavingW, usual + 0.375, 0.1);
  EXPECT_EQ(engine().baseline.at(kNotes), usual) << "what is paused isn't usual";
  lid(false);
  EXPECT_NEAR(kept().at(0).whSaved, (usual + 0.375) / 6, 0.15);
  EXPECT_NEAR(kept()[0].closedMinutes, 10, 0.05);

  laptop.processes().exit(notes);  // gone from the list: it adds nothing
  laptop.processes().exit(notesHelper);
  engine().targeted = std::map<std::string, AppRule>{{kNotes, AppRule::pause}};
  lid(true);
  laptop.advance(60);
  EXPECT_LT(engine().liveSavingW, 1);
}

TEST_F(Account, AMeasurementIsNoSavingWhileNothingIsSlowed) {
  laptop.defaults().set("powerEffects2", std::map<std::string, double>{{"total", 4.5}});
  config(R"({"preset": "speed"})");
  close();
  laptop.advance(60);
  EXPECT_EQ(engine().liveSavingW, 0);
}

TEST(Sleep, IsAvoidedEnergyUpToWhatTheBatteryHeld) {
  struct Case {
    double hours, watts;
    int percent;  // zero: there is no battery
    double fullWh, avoided;
  };
  for (const Case& row :
       {Case{10, 100, 50, 70, 35}, Case{10, 5, 20, 50, 10}, Case{2, 5, 80, 70, 10}, Case{2, 5, 0, 70, 0}}) {
    Desk desk;
    desk.laptop.edit([&](LaptopReport& report) {
      report.battery->currentCapacity = row.percent;
      report.battery->voltage = 10'000;
      report.battery->instantAmperage = -static_cast<std::int64_t>(row.watts * 100);
      report.battery->timeRemaining.reset();
      if (row.percent == 0) report.battery.reset();
    });
    desk.laptop.defaults().set("fullWh", row.fullWh);
    desk.close();
    desk.laptop.advance(120);
    desk.laptop.processes().setRates(desk.claude, 0, 0);
    desk.laptop.advance(500);
    ASSERT_TRUE(desk.asleep());
    EXPECT_EQ(desk.engine().receipt.get()->sleptBecause, "Claude Code finished");
    const Date asked = desk.engine().sleepInfo->first;
    desk.laptop.passAsleep(Seconds{row.hours * 3600});
    desk.lid(false);
    const auto& session = desk.engine().stats->sessions.at(0);
    EXPECT_NEAR(session.whAvoided, row.avoided, row.avoided * 0.05);
    EXPECT_NEAR(session.sleptMinutes, row.hours * 60, 10);
    EXPECT_NEAR(session.closedMinutes, secondsBetween(session.date, asked) / 60, 0.01);
  }
}

TEST_F(Account, SleepThatWasAskedForAndNeverCameIsNoSleep) {
  close();
  laptop.advance(60);
  refuse({"pmset sleepnow"});
  engine().sleepNow();
  laptop.advance(3600);
  lid(false);
  EXPECT_EQ(kept().at(0).sleptMinutes, 0);
  EXPECT_EQ(kept()[0].whAvoided, 0);
  EXPECT_NEAR(kept()[0].closedMinutes, 1, 0.1) << "awake time ends where sleep was asked for";
}

SavingsStats::Session oneSession(Date date) { return {date, 60, 1, 30, 2, 80, 70, "Claude Code"}; }

TEST(Statistics, The401stSessionDropsTheFirstAndTheTotalsKeepIt) {
  World world;
  SavingsStats stats;
  const Date begin = world.laptop.now();
  for (int at = 0; at < 400; ++at) stats.add(oneSession(begin + at));
  stats.add(oneSession(begin + 400));
  EXPECT_EQ(stats.sessions.size(), 400u);
  EXPECT_EQ(stats.sessions[0].date, begin + 1);
  EXPECT_EQ(stats.allTimeWhSaved, 401);
  EXPECT_EQ(stats.allTimeWhAvoided, 802);
  ASSERT_TRUE(stats.save(world.state));
  EXPECT_EQ(SavingsStats::load(world.state), stats);
}

TEST(Statistics, AWeekIsSevenDaysOfSeconds) {
  const Date now = dateFromUnix(1'774'807'200);
  SavingsStats stats;
  for (const double age : {0.0, 604'799.0, 604'800.0, -5000.0}) stats.add(oneSession(now + -age));
  EXPECT_EQ(stats.week(now), (SavingsStats::Week{3, 6, 90, 180, 3})) << "one of the future counts";
}

TEST(Statistics, ABrokenFileCountsAsNone) {
  const std::string good =
      R"({"sessions": [{"date": "2026-01-05T07:00:00Z", "closedMinutes": 1, "whSaved": 1, "sleptMinutes": 0,
          "whAvoided": 0}], "allTimeWhSaved": 5, "allTimeWhAvoided": 6})";
  World world;
  const auto load = [&](const std::string& text) {
    world.laptop.files().put(world.state.path("stats.json"), text);
    return SavingsStats::load(world.state);
  };
  EXPECT_EQ(load(good).sessions.size(), 1u);
  for (const std::string what : {"\"allTimeWhAvoided", "\"allTimeWhSaved", "\"whSaved", "\"date", "\"sleptMinutes"}) {
    std::string text = good;
    EXPECT_EQ(load(text.replace(text.find(what), what.size(), "\"other")), SavingsStats{}) << what;
  }
}

TEST_F(Account, AFullDiskLosesNoSession) {
  start();
  session(60);
  const SavingsStats first = SavingsStats::load(state);
  laptop.files().setFull(true);
  session(60);
  EXPECT_EQ(SavingsStats::load(state), first) << "what was there stays whole";
  laptop.files().setFull(false);
  laptop.advance(120);
  EXPECT_EQ(SavingsStats::load(state).sessions.size(), 2u) << "written once there was room";
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
  laptop.advance(2.9);
  EXPECT_EQ(treatment(notes), "normal");
  laptop.advance(0.2);
  EXPECT_EQ(treatment(notes) + treatment(docker), "pausedslow");
  laptop.advance(3.5);
  EXPECT_EQ(treatment(notes), "paused") << "the repair of leftovers waits";
  laptop.advance(0.5);
  EXPECT_FALSE(engine().measuring);
  EXPECT_EQ(changed(), "");
  const SavingsTest& test = *engine().lastTest.get();
  ASSERT_EQ(test.apps.size(), 2u);
  EXPECT_NEAR(test.before, 8.5, 0.01);
  EXPECT_NEAR(test.after, 0.5, 0.01);
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

}  // namespace
}  // namespace tovi
