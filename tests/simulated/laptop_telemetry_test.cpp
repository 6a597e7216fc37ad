#include "platform/simulated/LaptopTelemetry.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Telemetry = BatteryProperties::Telemetry;

TEST(LaptopTelemetry, TheScreenDrawsOnlyWhileItIsLit) {
  LaptopReport report;
  LaptopSwitches switches;
  switches.displays[1].brightness = 0.5;
  const double dark = LaptopTelemetry::kBaseWatts;
  const auto watts = [&] { return LaptopTelemetry::quietWatts(report, switches); };
  EXPECT_DOUBLE_EQ(watts(), dark + 0.6 + 1.5);
  switches.displays[1].brightness = 0;
  EXPECT_DOUBLE_EQ(watts(), dark + 0.6);
  switches.displayAsleep = true;
  EXPECT_DOUBLE_EQ(watts(), dark);
  switches.displayAsleep = false;
  switches.displays[1].enabled = false;
  EXPECT_DOUBLE_EQ(watts(), dark);
  report.displays = {{1, true}, {2, false}};
  EXPECT_DOUBLE_EQ(watts(), dark) << "an external screen has a plug of its own";
}

TEST(LaptopTelemetry, LowPowerModeSavesOnlyOnItsOwnSource) {
  LaptopReport report;
  LaptopSwitches switches;
  switches.acMode["lowpowermode"] = 1;
  EXPECT_EQ(LaptopTelemetry::processFactor(report, switches), 1);
  report.battery->externalConnected = true;
  EXPECT_DOUBLE_EQ(LaptopTelemetry::processFactor(report, switches), 0.85);
  switches.displays[1].enabled = false;
  EXPECT_DOUBLE_EQ(LaptopTelemetry::quietWatts(report, switches), 1.7);
}

class ModelledController : public testing::Test {
 protected:
  MemoryLaptop laptop;
  Telemetry read() { return laptop.machine().power.battery()->powerTelemetry.value(); }

  ModelledController() {
    laptop.setSwitches([](LaptopSwitches& switches) { switches.displays[1].enabled = false; });  // 2 W
  }
};

TEST_F(ModelledController, PublishesTheMeanOfEachWholePeriod) {
  MemoryProcess busy;
  busy.watts = 3;
  const Telemetry first = read();
  EXPECT_EQ(first.systemLoad, 2000);
  const Pid pid = laptop.processes().add(busy);
  laptop.advance(29);
  EXPECT_EQ(read().systemLoadAccumulatorCount, first.systemLoadAccumulatorCount) << "a period is 30 seconds";
  laptop.advance(1);
  EXPECT_EQ(read().systemLoad, 5000);
  EXPECT_EQ(read().systemLoadAccumulatorCount.value() - first.systemLoadAccumulatorCount.value(), 1);
  EXPECT_EQ(read().accumulatedSystemLoad.value() - first.accumulatedSystemLoad.value(), 5000);
  laptop.advance(15);
  read();  // marks where the load changes
  laptop.processes().exit(pid);
  laptop.advance(15);
  EXPECT_EQ(read().systemLoad, 3500) << "half the period at 5 W, half at 2 W";
}

TEST_F(ModelledController, CatchesUpOnManyPeriodsAtOnce) {
  const Telemetry before = read();
  laptop.advance(300);
  const Telemetry now = read();
  EXPECT_EQ(now.systemLoadAccumulatorCount.value() - before.systemLoadAccumulatorCount.value(), 10);
  EXPECT_EQ(now.accumulatedSystemLoad.value() - before.accumulatedSystemLoad.value(), 20000);
}

TEST_F(ModelledController, ASwitchTurnedBetweenTwoReadingsCountsFromThatMoment) {
  read();
  laptop.advance(20);
  laptop.setSwitches([](LaptopSwitches& switches) { switches.displays[1] = {true, 0.0}; });  // 0.6 W more
  laptop.advance(10);
  EXPECT_EQ(read().systemLoad, 2200);
}

TEST_F(ModelledController, AStoppedProcessSavesItsPower) {
  MemoryProcess busy;
  busy.watts = 4;
  const Pid pid = laptop.processes().add(busy);
  read();
  laptop.advance(30);
  const auto running = read();
  laptop.processes().pause(pid, laptop.processes().startTime(pid).value());
  laptop.advance(30);
  EXPECT_EQ(running.systemLoad, 6000);
  EXPECT_EQ(read().systemLoad, 2000);
}

TEST_F(ModelledController, AShorterPeriodTakesEffectWithoutLosingACount) {
  const auto before = read();
  laptop.advance(20);
  laptop.edit([](LaptopReport& report) { report.telemetrySeconds = 2; });
  laptop.advance(10);
  const auto now = read();
  const auto count = now.systemLoadAccumulatorCount.value() - before.systemLoadAccumulatorCount.value();
  EXPECT_EQ(count, 6) << "one for the 20 seconds so far, five for the ten after";
  EXPECT_EQ(now.accumulatedSystemLoad.value() - before.accumulatedSystemLoad.value(), count * 2000);
}

TEST_F(ModelledController, GivesWayToAReportOfItsOwn) {
  laptop.edit([](LaptopReport& report) { report.battery->powerTelemetry = Telemetry{1234, std::nullopt, 7}; });
  EXPECT_EQ(read().systemLoad, 1234);
  EXPECT_FALSE(read().accumulatedSystemLoad);
  laptop.edit([](LaptopReport& report) { report.battery.reset(); });
  EXPECT_FALSE(laptop.machine().power.battery());
}

}  // namespace
}  // namespace tovi
