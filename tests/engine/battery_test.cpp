// From battery readings to learned figures, and the rhythm in which they are read.

#include <gtest/gtest.h>

#include "engine/World.h"

namespace tovi {
namespace {

using Telemetry = BatteryProperties::Telemetry;

struct BatteryTest : testing::Test, World {
  void telemetry(std::optional<double> load, std::optional<std::int64_t> sum, std::optional<std::int64_t> count) {
    laptop.edit([&](LaptopReport& report) { report.battery->powerTelemetry = Telemetry{load, sum, count}; });
  }
};

TEST_F(BatteryTest, CountersAreTrustedBeforeTheMomentaryFigure) {
  telemetry(9000, 100000, 10);
  start();
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(9.0));
  telemetry(9000, 112000, 12);
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(6.0));
  telemetry(8000, 112000, 12);  // nothing published since
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(8.0));
  telemetry(7000, 500, 13);  // the counters restarted
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(7.0));
  telemetry(0, 4500, 14);
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(4.0));
  telemetry(0, 4500, 14);
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::nullopt);
}

TEST_F(BatteryTest, DrawIsSmoothedApartForTheLidOpenAndClosed) {
  telemetry(10000, {}, {});
  start();
  engine().addHold("training", {}, {}, {});
  laptop.advance(10);
  EXPECT_EQ(engine().openDraw.get(), std::optional(10.0));
  telemetry(20000, {}, {});
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(*engine().openDraw.get(), 0.15 * 20 + 0.85 * 10);
  lid(true);
  telemetry(4000, {}, {});
  laptop.advance(10);
  EXPECT_EQ(engine().closedDraw.get(), std::optional(4.0));
  telemetry(2000, {}, {});
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(*engine().closedDraw.get(), 0.1 * 2 + 0.9 * 4);
  telemetry(300, {}, {});  // too little to mean anything
  const double before = *engine().closedDraw.get();
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(*engine().closedDraw.get(), before);
  EXPECT_EQ(laptop.defaults().number("closedDraw"), std::nullopt);
  telemetry(2000, {}, {});
  laptop.advance(60);
  EXPECT_TRUE(laptop.defaults().number("closedDraw").has_value());
}

TEST_F(BatteryTest, CapacityIsLearnedWithinReason) {
  laptop.edit([](LaptopReport& report) {
    report.battery->timeRemaining = 600;
    report.battery->instantAmperage = -500;
    report.battery->voltage = 12000;  // 6 W for 10 h at 80 %: 75 Wh
  });
  start();
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(engine().fullWh, 0.2 * 75 + 0.8 * 70);
  const double learned = engine().fullWh;
  laptop.edit([](LaptopReport& report) { report.battery->timeRemaining = 1120; });  // exactly 140 Wh
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(engine().fullWh, learned);
}

TEST_F(BatteryTest, AnOpenPanelReadsAtEveryTick) {
  start();
  laptop.advance(2);
  battery(50);
  laptop.advance(2);
  EXPECT_EQ(engine().battery.get()->percent, 80);
  laptop.advance(6);
  EXPECT_EQ(engine().battery.get()->percent, 50);
  engine().panelOpen = true;
  battery(40);
  laptop.advance(2);
  EXPECT_EQ(engine().battery.get()->percent, 40);
}

TEST_F(BatteryTest, ABatteryThatCannotBeReadKeepsTheLastFigures) {
  telemetry(9000, {}, {});
  start();
  laptop.advance(10);
  laptop.edit([](LaptopReport& report) { report.battery.reset(); });
  laptop.advance(10);
  EXPECT_EQ(engine().systemWatts.get(), std::optional(9.0));
  EXPECT_EQ(engine().battery.get()->percent, 80);
}

TEST_F(BatteryTest, TheWatchdogIsLookedAfterFromTheThirdTickOn) {
  start();
  laptop.forgetCommands();
  const auto looks = [&] { return laptop.commandCount("/bin/launchctl print gui/501/com.norvane.tovi.watchdog"); };
  laptop.advance(4);
  EXPECT_EQ(looks(), 0u);
  laptop.advance(2);
  EXPECT_EQ(looks(), 1u);
  laptop.advance(298);
  EXPECT_EQ(looks(), 1u);
  laptop.advance(2);
  EXPECT_EQ(looks(), 2u);
}

TEST_F(BatteryTest, AMissingWatchdogIsRepairedOnceAndThenComplainedOf) {
  start();
  laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = false; });
  laptop.advance(6);
  EXPECT_TRUE(laptop.switches().watchdogLoaded);
  EXPECT_EQ(engine().warning.get(), std::nullopt);
  laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = false; });
  laptop.advance(300);
  EXPECT_EQ(engine().warning.get(),
            std::optional<std::string>("The safety watchdog isn't running, so a crash wouldn't be cleaned up "
                                       "automatically. Run Set Up again in Settings."));
  laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = true; });
  laptop.advance(300);
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

}  // namespace
}  // namespace tovi
