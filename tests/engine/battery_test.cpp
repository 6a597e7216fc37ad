// From battery readings to learned figures, and the rhythm in which they are read.

#include <gtest/gtest.h>

#include "engine/World.h"

namespace tovi {
namespace {

struct BatteryTest : testing::Test, World {
  void telemetry(double load, std::optional<std::int64_t> sum = {}, std::optional<std::int64_t> count = {}) {
    laptop.edit([&](LaptopReport& report) {
      report.battery->powerTelemetry = BatteryProperties::Telemetry{load, sum, count};
    });
  }
  std::optional<double> read(const Field<std::optional<double>>& figure) {
    laptop.advance(10);
    return figure;
  }
};

TEST_F(BatteryTest, CountersAreTrustedBeforeTheMomentaryFigure) {
  telemetry(9000, 100000, 10);
  start();
  const auto reads = [&](double load, std::int64_t sum, std::int64_t count) {
    telemetry(load, sum, count);
    return read(engine().systemWatts);
  };
  EXPECT_EQ(reads(9000, 100000, 10), 9.0);
  EXPECT_EQ(reads(9000, 112000, 12), 6.0);
  EXPECT_EQ(reads(8000, 112000, 12), 8.0) << "nothing published since";
  EXPECT_EQ(reads(7000, 500, 13), 7.0) << "the counters restarted";
  EXPECT_EQ(reads(0, 4500, 14), 4.0);
  EXPECT_EQ(reads(0, 4500, 14), std::nullopt);
  telemetry(9000);
  EXPECT_EQ(read(engine().systemWatts), 9.0);
  laptop.edit([](LaptopReport& report) { report.battery.reset(); });
  EXPECT_EQ(read(engine().systemWatts), 9.0) << "what can't be read keeps its last figures";
  EXPECT_EQ(engine().battery.get()->percent, 80);
}

TEST_F(BatteryTest, DrawIsSmoothedApartForTheLidOpenAndClosed) {
  start().addHold("training", {}, {}, {});
  telemetry(10000);
  EXPECT_EQ(read(engine().openDraw), 10.0);
  telemetry(20000);
  EXPECT_DOUBLE_EQ(*read(engine().openDraw), 0.15 * 20 + 0.85 * 10);
  lid(true);
  telemetry(4000);
  EXPECT_EQ(read(engine().closedDraw), 4.0);
  telemetry(2000);
  const double smoothed = 0.1 * 2 + 0.9 * 4;
  EXPECT_DOUBLE_EQ(*read(engine().closedDraw), smoothed);
  telemetry(300);
  EXPECT_DOUBLE_EQ(*read(engine().closedDraw), smoothed) << "too little to mean anything";
  EXPECT_EQ(laptop.defaults().number("closedDraw"), std::nullopt);
  telemetry(2000);
  laptop.advance(900);
  const auto written = laptop.defaults().number("closedDraw");
  EXPECT_NEAR(written.value_or(0), 2, 0.02);
  telemetry(*written * 1000 + 15);
  laptop.advance(900);
  EXPECT_EQ(laptop.defaults().number("closedDraw"), written) << "too little to wake the disk for";
  telemetry(2500);
  laptop.advance(900);
  EXPECT_GT(laptop.defaults().number("closedDraw"), 2.4);
}

TEST_F(BatteryTest, CapacityIsLearnedWithinReason) {
  laptop.defaults().set("fullWh", 20.0);  // too little to be true
  laptop.edit([](LaptopReport& report) {
    report.battery->timeRemaining = 600;
    report.battery->instantAmperage = -500;
    report.battery->voltage = 12000;  // 6 W for 10 h at 80 %: 75 Wh
  });
  start();
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(engine().fullWh, 0.2 * 75 + 0.8 * 70);
  laptop.edit([](LaptopReport& report) { report.battery->timeRemaining = 1120; });  // exactly 140 Wh
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(engine().fullWh, 0.2 * 75 + 0.8 * 70);
}

TEST_F(BatteryTest, AnOpenPanelReadsAtEveryTick) {
  start();
  battery(50);
  laptop.advance(8);
  EXPECT_EQ(engine().battery.get()->percent, 80);
  engine().panelOpen = true;
  laptop.advance(1);
  battery(40);
  laptop.advance(2);
  EXPECT_EQ(engine().battery.get()->percent, 40);
}

TEST_F(BatteryTest, AMissingWatchdogIsFoundEveryFiveMinutesRepairedOnceAndThenComplainedOf) {
  start();
  const auto loaded = [&](bool now) {
    laptop.setSwitches([=](LaptopSwitches& switches) { switches.watchdogLoaded = now; });
  };
  loaded(false);
  laptop.advance(4);
  EXPECT_FALSE(laptop.switches().watchdogLoaded);
  laptop.advance(2);
  EXPECT_TRUE(laptop.switches().watchdogLoaded);
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  loaded(false);
  laptop.advance(298);
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  laptop.advance(2);
  EXPECT_EQ(engine().warning.get(),
            "The safety watchdog isn't running, so a crash wouldn't be cleaned up automatically. Run Set Up again in "
            "Settings.");
  loaded(true);
  laptop.advance(300);
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

TEST_F(BatteryTest, AWatchdogIsRepairedAlsoAfterTheHelperWasRemovedAndSetUpAgain) {
  start();
  ASSERT_EQ(engine().uninstallHelper(), std::nullopt);
  engine().runSetup({});
  laptop.advance(10);
  ASSERT_TRUE(engine().setupReady);
  laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = false; });
  laptop.advance(310);
  EXPECT_TRUE(laptop.switches().watchdogLoaded);
}

}  // namespace
}  // namespace tovi
