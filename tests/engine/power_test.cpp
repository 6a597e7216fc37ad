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
      {{10, 6, 10, 7}, 3.0}, {{10, 7, 10, 6}, 3.0},     {{2, 1, 2, 1.9}, {}},          {{5, 5.2, 5, 5.1}, 0.0},
      {{3, 3, 3, 2.5}, 0.0}, {{10, 0, 10, 3.5}, 6.5},   {{10, 0, 10, 3.4375}, 6.5625}, {{10, 0, 10, 3.75}, {}},
      {{4, 5, 4, 3}, {}},    {{0.5, 0, 0.5, 1.25}, {}},
  };
  for (const auto& row : cases) {
    const auto total = PowerTest::totalOf(row.readings);
    EXPECT_EQ(total.saving, row.saving) << row.readings[1] << " " << row.readings[3];
    EXPECT_DOUBLE_EQ(total.closedWithout, (row.readings[0] + row.readings[2]) / 2);
    EXPECT_DOUBLE_EQ(total.closedWith, (row.readings[1] + row.readings[3]) / 2);
  }
  EXPECT_EQ(PowerTest::savingOf(2, 3), 0);
  EXPECT_EQ(PowerTest::savingOf(3, 2), 1);
}

TEST(PowerTestSums, KeysDependOnWhatTheScreenMayDo) {
  const std::vector<std::string> always{"apps", "simulators", "audio", "low_power"};
  const struct {
    PowerTest::Choice choice;
    std::vector<std::string> more;
  } cases[] = {
      {{}, {}},
      {{.canSwitchScreen = true}, {"screen_off"}},
      {{.canSwitchScreen = true, .passwordDelay = 5}, {"screen_off"}},
      {{.canSwitchScreen = true, .passwordDelay = 0}, {}},
      {{.screenOffNoLock = true, .canSwitchScreen = true, .passwordDelay = 0}, {"screen_off"}},
      {{.includeScreen = true, .canSwitchScreen = true}, {"screen_off", "screen"}},
      {{.includeScreen = true, .lockOnClose = true, .canSwitchScreen = true}, {}},
  };
  for (const auto& row : cases) {
    auto expected = always;
    expected.insert(expected.end(), row.more.begin(), row.more.end());
    EXPECT_EQ(PowerTest::keysFor(row.choice), expected);
  }
  EXPECT_EQ(PowerTest::stepName("audio"), "background audio");
  EXPECT_EQ(PowerTest::stepName("fans"), "fans");
}

TEST(PowerTestSums, FullSpeedHasNoSavingOn) {
  Config config;
  for (const std::string_view key : {"apps", "simulators", "audio", "low_power"}) {
    config.preset = Preset::balanced;
    EXPECT_TRUE(PowerTest::savingOn(key, config, false)) << key;
    config.preset = Preset::speed;
    EXPECT_FALSE(PowerTest::savingOn(key, config, true)) << key;
  }
  EXPECT_TRUE(PowerTest::savingOn("screen_off", config, true));
  EXPECT_FALSE(PowerTest::savingOn("screen", config, true));
  EXPECT_FALSE(PowerTest::savingOn("fans", config, true));
}

TEST(PowerTestReading, OnlyAWholeUpdateThatBeganAfterwardsCounts) {
  const auto sample = [](std::int64_t sum, std::int64_t count) {
    return std::optional{PowerSample{9.0, sum, count, Date{}}};
  };
  PowerTest::Reading reading(sample(100'000, 10));
  EXPECT_FALSE(reading.take(sample(100'000, 10)).ended);
  EXPECT_FALSE(reading.take(sample(150'000, 11)).ended) << "that one began in the old state";
  EXPECT_FALSE(reading.take(sample(150'000, 11)).ended);
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
  EXPECT_TRUE(last.ended);
  EXPECT_FALSE(last.watts);

  PowerTest::Reading gone(sample(1, 1));
  EXPECT_TRUE(gone.take(std::nullopt).ended);
  PowerTest::Reading uncounted(sample(1, 1));
  EXPECT_TRUE(uncounted.take(PowerSample{9.0, 5, std::nullopt, Date{}}).ended);
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
    laptop.edit([&](LaptopReport& report) {
      AssertionRecord speakers;
      speakers.pid = radio;
      speakers.resourcesUsed = {"audio-out BuiltInSpeakerDevice"};
      report.assertions.push_back(speakers);
    });
    start();
    engine().addHold("training", {}, {}, {});
  }

  void rate(Pid pid, double watts) { laptop.processes().setRates(pid, watts, watts / 4); }

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

void expectWithin5Percent(double measured, double known, const std::string& what) {
  EXPECT_NEAR(measured, known, known * 0.05) << what;
}

constexpr double kQuiet = LaptopTelemetry::kBaseWatts;
constexpr double kPanel = LaptopTelemetry::kPanelWatts;
constexpr double kRest = Lab::kAgentWatts + Lab::kLoadWatts;

TEST(PowerTestRun, AShortTestFindsWhatAllSavingsAreWorth) {
  Lab lab;
  lab.closeLid();
  lab.stir();
  const std::string before = lab.closedState();
  // Left over from another test, beside which they would be stale.
  lab.engine().powerEffects = std::map<std::string, double>{{"apps", 99}};
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  EXPECT_EQ(lab.progress(), "Measuring, 1 of 4");
  EXPECT_EQ(lab.treatment(lab.notes), "normal");
  EXPECT_EQ(lab.treatment(lab.simulator), "normal");
  EXPECT_FALSE(lab.engine().lowPowerSet());
  EXPECT_EQ(lab.engine().startPowerTest(false, false), "A power test is already running");
  lab.goToStep(2);
  EXPECT_EQ(lab.closedState(), before);
  lab.finish();
  const double without = kQuiet + kPanel + kRest + Lab::kNotesWatts + Lab::kSimulatorWatts + Lab::kAudioWatts;
  const double with = (kQuiet + kRest) * Lab::kKept + kPanel;
  expectWithin5Percent(lab.effect("closed_without"), without, "without");
  expectWithin5Percent(lab.effect("closed_with"), with, "with");
  expectWithin5Percent(lab.effect("total"), without - with, "total");
  EXPECT_EQ(lab.engine().powerEffects->size(), 3u) << "single savings weren't measured";
  EXPECT_TRUE(lab.engine().powerUnclear->empty());
  EXPECT_EQ(lab.closedState(), before);
  EXPECT_EQ(lab.engine().powerTestAborted.get(), std::nullopt);
  EXPECT_EQ(lab.laptop.defaults().numbers("powerEffects2"), lab.engine().powerEffects.get());

  // The measurement is what counts from now on, and also for the next run of the program.
  lab.laptop.advance(60);
  EXPECT_EQ(lab.engine().liveSavingW, lab.effect("total"));
  const auto effects = lab.engine().powerEffects.get();
  EXPECT_EQ(lab.crashAndRestart().powerEffects.get(), effects);
}

TEST(PowerTestRun, ADetailedTestFindsWhatEachSavingIsWorth) {
  for (const unsigned seed : {7u, 20260105u, 99u, 1u}) {
    SCOPED_TRACE(seed);
    Lab lab;
    lab.random.seed(seed);
    lab.closeLid();
    lab.stir();
    const std::string before = lab.closedState();
    const auto learned = lab.engine().closedDraw.get();
    ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
    EXPECT_EQ(lab.progress(), "Measuring, 1 of 16");
    lab.goToStep(6);
    EXPECT_EQ(lab.progress(), "Measuring other apps, 6 of 16");
    lab.goToStep(11);
    EXPECT_EQ(lab.progress(), "Measuring screen off (locks), 16 of 16");
    EXPECT_TRUE(lab.laptop.switches().displayAsleep);
    lab.finish();
    const std::map<std::string, double> known{{"apps", Lab::kNotesWatts * Lab::kKept},
                                              {"simulators", Lab::kSimulatorWatts * Lab::kKept},
                                              {"audio", Lab::kAudioWatts * Lab::kKept},
                                              {"low_power", (kQuiet + kRest) * LaptopTelemetry::kLowPowerShare},
                                              {"screen_off", kPanel},
                                              {"screen", kPanel}};
    for (const auto& [key, watts] : known) expectWithin5Percent(lab.effect(key), watts, key);
    EXPECT_EQ(lab.closedState(), before);
    EXPECT_EQ(lab.engine().closedDraw.get(), learned) << "the test's own states are no usual draw";
    lab.lid(false);
    EXPECT_EQ(lab.changed(), "");
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
  lab.engine().powerEffects = std::map<std::string, double>{{"total", 5}};
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  lab.goToStep(2);
  lab.rate(lab.load, 20);
  lab.goToStep(2);
  lab.rate(lab.load, 0);
  lab.finish();
  EXPECT_FALSE(lab.engine().powerEffects->contains("total"));
  EXPECT_EQ(lab.engine().powerUnclear.get(), std::set<std::string>{"total"});
  EXPECT_EQ(lab.laptop.defaults().strings("powerUnclear"), std::vector<std::string>{"total"});
  EXPECT_EQ(lab.engine().powerTestAborted.get(), std::nullopt);
  // A clear one takes it back.
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  lab.finish();
  EXPECT_TRUE(lab.engine().powerUnclear->empty());
  EXPECT_TRUE(lab.engine().powerEffects->contains("total"));
}

TEST(PowerTestRun, RefusalsSayWhatIsMissing) {
  const char* kClose = "Close the lid first (with Tovi keeping the Mac awake): the test measures lid-closed savings";
  Lab lab;
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kClose);
  lab.closeLid();
  const auto askWith = [&](std::optional<Telemetry> telemetry) {
    lab.laptop.edit([&](LaptopReport& report) { report.battery->powerTelemetry = telemetry; });
    return lab.engine().startPowerTest(false, false);
  };
  const char* kNone = "This Mac doesn't report whole-system power, so savings can't be measured";
  EXPECT_EQ(askWith(Telemetry{9000, {}, {}}), kNone);
  EXPECT_EQ(askWith(Telemetry{}), kNone);
  lab.laptop.edit([&](LaptopReport& report) { report.battery.reset(); });
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kNone);
  EXPECT_FALSE(lab.engine().powerTestRunning);
  lab.engine().releaseHold({});
  Config off = lab.engine().config;
  off.mode = Mode::off;
  lab.engine().apply(off, false);
  EXPECT_EQ(lab.engine().startPowerTest(false, false), kClose) << "not holding";
}

struct Abort {
  const char* name;
  void (*happen)(Lab& lab);
  const char* text;
  bool stillClosed;  // the closed state goes on
};

constexpr Abort kAborts[] = {
    {"opened", [](Lab& lab) { lab.lid(false); }, "the lid was opened", false},
    {"opened and closed between two looks",
     [](Lab& lab) {
       lab.lid(false);
       lab.laptop.advance(0.3);
       lab.lid(true);
     },
     "the lid was opened", true},
    {"turned off",
     [](Lab& lab) {
       Config off = lab.engine().config;
       off.mode = Mode::off;
       lab.engine().apply(off, false);
       lab.engine().releaseHold({});
     },
     "Tovi stopped keeping the Mac awake", false},
    {"silent",
     [](Lab& lab) {
       lab.laptop.edit([](LaptopReport& report) { report.battery->powerTelemetry = Telemetry{9000, 5, {}}; });
     },
     "the battery controller stopped reporting power", true},
    {"stuck",
     [](Lab& lab) {
       lab.laptop.edit([](LaptopReport& report) { report.battery->powerTelemetry = Telemetry{9000, 5, 7}; });
       lab.laptop.advance(300);
     },
     "the battery controller stopped reporting power", true},
};

TEST(PowerTestRun, EachAbortHasItsTextAndLeavesTheLaptopAsItShouldBe) {
  for (const Abort& abort : kAborts) {
    for (const int step : {1, 2, 6}) {
      Lab lab;
      lab.closeLid();
      const std::string closed = lab.closedState();
      lab.engine().powerEffects = std::map<std::string, double>{{"total", 5}};
      ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
      lab.goToStep(step);
      abort.happen(lab);
      lab.laptop.advance(2);
      EXPECT_FALSE(lab.engine().powerTestRunning) << abort.name << step;
      EXPECT_EQ(lab.engine().powerTestAborted.get(), abort.text) << abort.name << step;
      EXPECT_EQ(lab.engine().powerTestProgress.get(), std::nullopt);
      EXPECT_EQ(lab.laptop.defaults().numbers("powerEffects2"), std::nullopt) << abort.name << step;
      if (abort.stillClosed) {
        EXPECT_EQ(lab.closedState(), closed) << abort.name << step;
      } else {
        EXPECT_EQ(lab.changed(), "") << abort.name << step;
        EXPECT_EQ(lab.treatment(lab.simulator), "normal") << abort.name << step;
      }
      lab.laptop.advance(120);
      EXPECT_EQ(lab.engine().powerTestAborted.get(), abort.text) << "one exit, once";
    }
  }
}

TEST(PowerTestRun, TheLidMayBeOpenedInEveryStep) {
  for (int step = 1; step <= 16; ++step) {
    Lab lab(R"({"preset": "longest", "screenOffNoLock": true})");
    lab.closeLid();
    ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
    lab.goToStep(step);
    ASSERT_TRUE(lab.progress().ends_with(std::to_string(step) + " of 16")) << lab.progress();
    lab.lid(false);
    lab.laptop.advance(1.5);
    EXPECT_EQ(lab.engine().powerTestAborted.get(), "the lid was opened") << step;
    EXPECT_EQ(lab.changed(), "") << step;
    EXPECT_EQ(lab.treatment(lab.radio), "normal") << step;
    EXPECT_FALSE(lab.laptop.switches().displayAsleep) << step;
  }
}

TEST(PowerTestRun, HeatInTheMiddleForcesTheLongestPresetAndItStays) {
  Lab lab(R"({"preset": "speed"})");
  lab.closeLid();
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  lab.goToStep(2);
  EXPECT_EQ(lab.treatment(lab.notes), "normal");
  lab.heat(ThermalState::serious);
  EXPECT_EQ(lab.treatment(lab.notes), "paused") << "at once, test or not";
  lab.finish();
  EXPECT_EQ(lab.treatment(lab.notes), "paused");
  EXPECT_TRUE(lab.engine().lowPowerSet());
  lab.heat(ThermalState::nominal);
  EXPECT_EQ(lab.treatment(lab.notes), "normal");
  EXPECT_FALSE(lab.engine().lowPowerSet());
}

TEST(PowerTestRun, ScreenThatIsOffIsSwitchedOnAndOffAgain) {
  Lab lab(R"({"preset": "longest", "screenOffNoLock": true})");
  lab.closeLid();
  ASSERT_FALSE(lab.laptop.switches().display(1).enabled);
  ASSERT_EQ(lab.engine().startPowerTest(false, false), std::nullopt);
  EXPECT_TRUE(lab.laptop.switches().display(1).enabled);
  EXPECT_EQ(lab.laptop.switches().display(1).brightness, 0) << "on, but dark";
  lab.goToStep(2);
  EXPECT_FALSE(lab.laptop.switches().display(1).enabled);
  lab.finish();
  EXPECT_FALSE(lab.laptop.switches().display(1).enabled);
  lab.lid(false);
  EXPECT_EQ(lab.changed(), "");
}

TEST(PowerTestRun, ARunThatCrashesLeavesNothingBehind) {
  for (const int step : {1, 2, 14, 16}) {
    Lab lab(R"({"preset": "longest", "screenOffNoLock": true})");
    lab.closeLid();
    ASSERT_EQ(lab.engine().startPowerTest(true, true), std::nullopt);
    lab.goToStep(step);
    lab.crashAndRestart();
    lab.laptop.advance(60);
    lab.lid(false);
    EXPECT_EQ(lab.changed(), "") << step;
    EXPECT_FALSE(lab.engine().powerTestRunning);
    EXPECT_TRUE(lab.engine().powerEffects->empty());
  }
}

}  // namespace
}  // namespace tovi
