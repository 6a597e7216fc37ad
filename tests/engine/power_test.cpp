// Whole power tests against a laptop whose load is known, and the arithmetic behind them.

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "engine/Desk.h"
#include "engine/PowerTest.h"
#include "observe/SystemSwitches.h"
#include "platform/simulated/LaptopTelemetry.h"

namespace tovi {
namespace {

using Telemetry = BatteryProperties::Telemetry;

TEST(PowerTestSums, TheTotalIsTheSmallerOfTwoDifferencesThatAgree) {
  const struct {
    std::array<double, 4> readings;
    std::optional<double> saving;
  } cases[] = {
      {{3, 3, 3, 2.5}, 0.0},   {{0.5, 0, 0.5, 1.25}, {}}, {{10, 6, 10, 7}, 3.0},   {{10, 7, 10, 6}, 3.0},
      {{2, 1, 2, 1.9}, {}},    {{5, 5.2, 5, 5.1}, 0.0},   {{10, 0, 10, 3.5}, 6.5}, {{10, 0, 10, 3.4375}, 6.5625},
      {{10, 0, 10, 3.75}, {}}, {{4, 5, 4, 3}, {}},
  };
  for (const auto& row : cases) {
    const auto total = PowerTest::totalOf(row.readings);
    EXPECT_EQ(total.saving, row.saving) << row.readings[1] << " " << row.readings[3];
    EXPECT_DOUBLE_EQ(total.closedWithout, (row.readings[0] + row.readings[2]) / 2);
    EXPECT_DOUBLE_EQ(total.closedWith, (row.readings[1] + row.readings[3]) / 2);
  }
}

TEST(PowerTestSums, KeysDependOnWhatTheScreenMayDo) {
  const auto screens = [](const PowerTest::Choice& choice) {
    std::string keys;
    for (const std::string& key : PowerTest::keysFor(choice)) keys += key.starts_with("screen") ? key + " " : "";
    return keys;
  };
  EXPECT_EQ(screens({}), "");
  EXPECT_EQ(screens({.canSwitchScreen = true, .passwordDelay = 5}), "screen_off ");
  EXPECT_EQ(screens({.canSwitchScreen = true, .passwordDelay = 0}), "");
  EXPECT_EQ(screens({.screenOffNoLock = true, .canSwitchScreen = true, .passwordDelay = 0}), "screen_off ");
  EXPECT_EQ(screens({.includeScreen = true, .canSwitchScreen = true}), "screen_off screen ");
  EXPECT_EQ(screens({.includeScreen = true, .lockOnClose = true, .canSwitchScreen = true}), "");
}

TEST(PowerTestReading, OnlyAWholeUpdateThatBeganAfterwardsCounts) {
  const auto sample = [](std::int64_t sum, std::int64_t count) {
    return std::optional{PowerSample{9.0, sum, count, Date{}}};
  };
  PowerTest::Reading reading(sample(100'000, 10));
  EXPECT_FALSE(reading.take(sample(100'000, 10)).ended);
  EXPECT_FALSE(reading.take(sample(150'000, 11)).ended) << "that one began in the old state";
  EXPECT_EQ(reading.take(sample(154'000, 12)).watts, 4.0);
  PowerTest::Reading restarted(sample(100'000, 10));
  restarted.take(sample(104'000, 11));
  EXPECT_EQ(restarted.take(sample(3'000, 1)).watts, 9.0) << "counters that began anew";
  PowerTest::Reading blind(std::nullopt);
  EXPECT_FALSE(blind.take(sample(1000, 1)).ended) << "the first count that is seen is fresh enough";
  EXPECT_EQ(blind.take(sample(6000, 2)).watts, 5.0);
  PowerTest::Reading stuck(sample(1, 1));
  for (int poll = 1; poll <= 149; ++poll) ASSERT_FALSE(stuck.take(sample(1, 1)).ended) << poll;
  const auto last = stuck.take(sample(1, 1));
  EXPECT_TRUE(last.ended && !last.watts);
  EXPECT_TRUE(blind.take(PowerSample{9.0, 5, std::nullopt, Date{}}).ended);
}

// Notes, a simulator and something that holds the speakers, each with a known draw, beside an agent and a load that
// moves by itself.
struct Lab : Desk {
  static constexpr double kNotesWatts = 6, kSimulatorWatts = 3, kAudioWatts = 2, kAgentWatts = 12;
  static constexpr double kKept = 1 - LaptopTelemetry::kLowPowerShare;

  Pid simulatorRoot, simulator, radio, load;
  Registration noise;
  std::mt19937 random{7};

  explicit Lab(const std::string& settings = R"({"preset": "longest"})") : Desk(settings) {
    for (const Pid pid : {notesHelper, music, docker, terminal, shell, daemon}) rate(pid, 0);
    rate(notes, kNotesWatts);
    rate(claude, kAgentWatts);
    simulatorRoot = program("/Library/Developer/CoreSimulator/launchd_sim", 1, 0);
    simulator = program("/Library/Developer/CoreSimulator/Devices/App", simulatorRoot, kSimulatorWatts);
    radio = program("/usr/local/bin/radio", 1, kAudioWatts);
    load = program("/usr/local/bin/load", claude, 0);
    AssertionRecord speakers;
    speakers.pid = radio;
    speakers.resourcesUsed = {"audio-out BuiltInSpeakerDevice"};
    laptop.edit([&](LaptopReport& report) { report.assertions.push_back(speakers); });
    start().addHold("training", {}, {}, {});
  }

  void rate(Pid pid, double watts) { laptop.processes().setRates(pid, watts, watts / 4); }

  void telemetry(const Telemetry& told) {
    laptop.edit([&](LaptopReport& report) { report.battery->powerTelemetry = told; });
  }

  // A mean of 1.2 W: twice a watt up and down within each update of the controller, and jitter on top.
  void stir() {
    noise = laptop.queue().every(Seconds{0.1}, Seconds{0}, [this, at = 0]() mutable {
      const double jitter = std::uniform_real_distribution<>(-0.2, 0.2)(random);
      rate(load, 1.2 + (at++ / 75 % 2 == 0 ? 1 : -1) + jitter);
    });
  }
  static constexpr double kLoadWatts = 1.2;

  void closeLid() {
    lid(true);
    laptop.advance(40);
  }

  std::string closedState() {
    std::string words = changed();
    for (const Pid pid : {notes, docker, simulator, radio, claude}) words += treatment(pid) + " ";
    return words + (engine().screenOff ? "screen off " : "") + (laptop.switches().displayAsleep ? "asleep" : "");
  }

  std::string progress() { return engine().powerTestProgress.get().value_or("none"); }

  // Until the test is at its step `number`, and well into it.
  void goToStep(int number) {
    std::string last = progress();
    for (int step = 1; step < number; ++step) {
      while (progress() == last && engine().powerTestRunning) laptop.advance(1);
      last = progress();
    }
    laptop.advance(10);
    ASSERT_TRUE(engine().powerTestRunning) << number;
  }
  void finish() {
    for (int second = 0; engine().powerTestRunning && second < 1600; ++second) laptop.advance(1);
    ASSERT_FALSE(engine().powerTestRunning);
    noise.reset();
  }
  double effect(const std::string& key) {
    const auto& effects = engine().powerEffects.get();
    return effects.contains(key) ? effects.at(key) : std::nan("");
  }
};

constexpr double kQuiet = LaptopTelemetry::kBaseWatts;
constexpr double kPanel = LaptopTelemetry::kPanelWatts;
constexpr double kRest = Lab::kAgentWatts + Lab::kLoadWatts;

TEST(PowerTestRun, ADetailedTestFindsWhatAllAndEachSavingIsWorth) {
  for (const unsigned seed : {7u, 20260105u, 99u, 1u}) {
    Lab lab;
    lab.random.seed(seed);
    lab.closeLid();
    lab.stir();
    const std::string before = lab.closedState();
    const auto learned = lab.engine().closedDraw.get();
    ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
    EXPECT_EQ(lab.engine().startPowerTest(true, true), "A power test is already running");
    EXPECT_EQ(lab.progress(), "Measuring, 1 of 16");
    EXPECT_EQ(lab.treatment(lab.notes), "normal");
    EXPECT_FALSE(lab.engine().lowPowerSet());
    lab.goToStep(2);
    EXPECT_EQ(lab.closedState(), before);
    lab.goToStep(5);
    EXPECT_EQ(lab.progress(), "Measuring other apps, 6 of 16");
    lab.goToStep(11);
    EXPECT_EQ(lab.progress(), "Measuring screen off (locks), 16 of 16");
    lab.finish();
    const double without = kQuiet + kPanel + kRest + Lab::kNotesWatts + Lab::kSimulatorWatts + Lab::kAudioWatts;
    const double with = (kQuiet + kRest) * Lab::kKept + kPanel;
    const std::map<std::string, double> known{{"closed_without", without},
                                              {"closed_with", with},
                                              {"total", without - with},
                                              {"apps", Lab::kNotesWatts * Lab::kKept},
                                              {"simulators", Lab::kSimulatorWatts * Lab::kKept},
                                              {"audio", Lab::kAudioWatts * Lab::kKept},
                                              {"low_power", (kQuiet + kRest) * LaptopTelemetry::kLowPowerShare},
                                              {"screen_off", kPanel},
                                              {"screen", kPanel}};
    for (const auto& [key, watts] : known) EXPECT_NEAR(lab.effect(key), watts, watts * 0.05) << key << " " << seed;
    EXPECT_EQ(lab.engine().powerEffects->size(), known.size());
    EXPECT_EQ(lab.engine().powerTestAborted.get(), std::nullopt);
    EXPECT_EQ(lab.closedState(), before);
    EXPECT_EQ(lab.engine().closedDraw.get(), learned) << "the test's own states are no usual draw";

    // The measurement is what counts from now on, and also for the next run of the program.
    lab.laptop.advance(60);
    EXPECT_EQ(lab.engine().liveSavingW, lab.effect("total"));
    const auto effects = lab.engine().powerEffects.get();
    EXPECT_EQ(lab.crashAndRestart().powerEffects.get(), effects);
  }
}

TEST(PowerTestRun, WhatIsntThereTakesNoTimeAndASavingThatIsOffStaysOff) {
  Lab lab(R"({"preset": "speed"})");
  lab.closeLid();
  lab.engine().powerEffects = std::map<std::string, double>{{"simulators", 99}, {"audio", 99}};
  ASSERT_EQ(lab.engine().startPowerTest(false, true), std::nullopt);
  lab.goToStep(6);
  EXPECT_EQ(lab.progress(), "Measuring other apps, 6 of 14");
  lab.goToStep(2);
  EXPECT_EQ(lab.progress(), "Measuring Low Power Mode, 11 of 14") << "at full speed nothing looks for the others";
  lab.finish();
  EXPECT_NEAR(lab.effect("total"), 0, 0.02);
  EXPECT_NEAR(lab.effect("apps"), 0, 0.02);
  EXPECT_FALSE(lab.engine().powerEffects->contains("simulators"));
  EXPECT_FALSE(lab.engine().powerEffects->contains("audio"));
  EXPECT_EQ(lab.treatment(lab.notes), "normal");
}

TEST(PowerTestRun, ALoadThatMovesTooMuchMakesTheTotalUnclear) {
  Lab lab;
  lab.closeLid();
  for (const double watts : {20.0, 0.0}) {                                                  // a clear one takes it back
    lab.engine().powerEffects = std::map<std::string, double>{{"apps", 99}, {"total", 5}};  // of another test
    ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
    lab.goToStep(2);
    lab.rate(lab.load, watts);
    lab.goToStep(2);
    lab.rate(lab.load, 0);
    lab.finish();
    EXPECT_EQ(lab.engine().powerEffects->contains("total"), watts == 0);
    EXPECT_EQ(lab.engine().powerUnclear->contains("total"), watts != 0);
    EXPECT_FALSE(lab.engine().powerEffects->contains("apps")) << "beside this one it would be stale";
  }
}

TEST(PowerTestRun, RefusalsSayWhatIsMissing) {
  Lab lab;
  const char kClose[] = "Close the lid first (with Tovi keeping the Mac awake): the test measures lid-closed savings";
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kClose);
  lab.closeLid();
  const char kNone[] = "This Mac doesn't report whole-system power, so savings can't be measured";
  lab.telemetry({9000, {}, {}});
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kNone);
  lab.telemetry({});
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kNone);
  lab.laptop.edit([](LaptopReport& report) { report.battery.reset(); });
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kNone);
  lab.engine().releaseHold({});
  lab.turnOff();
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kClose) << "not holding";
}

struct Interruption {
  std::optional<std::string> text;
  bool stillClosed;  // the closed state goes on
  void (*happen)(Lab& lab);
};

const char kSilent[] = "the battery controller stopped reporting power";

const Interruption kInterruptions[] = {
    {"the lid was opened", false, [](Lab& lab) { lab.lid(false); }},
    {"the lid was opened", true,
     [](Lab& lab) {  // and closed between two looks
       lab.lid(false);
       lab.laptop.advance(0.3);
       lab.lid(true);
     }},
    {"Tovi stopped keeping the Mac awake", false,
     [](Lab& lab) {
       lab.turnOff();
       lab.engine().releaseHold({});
     }},
    {kSilent, true,
     [](Lab& lab) {
       lab.telemetry({9000, 5, {}});
     }},
    {kSilent, true,
     [](Lab& lab) {
       lab.telemetry({9000, 5, 7});
       lab.laptop.advance(300);
     }},
    {std::nullopt, false,
     [](Lab& lab) {
       lab.crashAndRestart();
       lab.laptop.advance(60);
       lab.lid(false);
     }},
};

TEST(PowerTestRun, EachInterruptionInAnyStepHasItsTextAndLeavesTheLaptopAsItShouldBe) {
  for (const auto& [text, stillClosed, happen] : kInterruptions) {
    for (int step = 1; step <= 16; ++step) {
      Lab lab(R"({"preset": "longest", "screenOffNoLock": true})");
      lab.closeLid();
      const std::string closed = lab.closedState();
      ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
      lab.goToStep(step);
      const std::string where = text.value_or("died") + " at " + lab.progress();
      ASSERT_TRUE(where.ends_with(" " + std::to_string(step) + " of 16")) << where;
      EXPECT_TRUE(step > 1 || lab.changed().find("screen off") == std::string::npos) << where << ": it is dark, and on";
      happen(lab);
      lab.laptop.advance(2);
      EXPECT_FALSE(lab.engine().powerTestRunning) << where;
      EXPECT_EQ(lab.engine().powerTestAborted.get(), text) << where;
      EXPECT_EQ(lab.engine().powerTestProgress.get(), std::nullopt) << where;
      EXPECT_EQ(lab.laptop.defaults().numbers("powerEffects2"), std::nullopt) << where;
      EXPECT_EQ(stillClosed ? lab.closedState() : lab.changed(), stillClosed ? closed : "") << where;
      EXPECT_TRUE(stillClosed || lab.treatment(lab.radio) == "normal") << where;
    }
  }
}

TEST(PowerTestRun, HeatInTheMiddleForcesTheLongestPresetAndItStays) {
  Lab lab(R"({"preset": "speed"})");
  lab.closeLid();
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  lab.goToStep(2);
  lab.heat(ThermalState::serious);
  EXPECT_EQ(lab.treatment(lab.notes), "paused") << "at once, test or not";
  lab.finish();
  EXPECT_EQ(lab.treatment(lab.notes), "paused");
  EXPECT_TRUE(lab.engine().lowPowerSet());
  lab.heat(ThermalState::nominal);
  EXPECT_EQ(lab.treatment(lab.notes), "normal");
  EXPECT_FALSE(lab.engine().lowPowerSet());
}

}  // namespace
}  // namespace tovi
