#include "platform/simulated/LaptopTelemetry.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Telemetry = BatteryProperties::Telemetry;

TEST(LaptopTelemetry, TheScreenDrawsWhileItIsLitAndLowPowerModeSavesOnItsOwnSource) {
  LaptopReport report;
  LaptopSwitches switches;
  const auto watts = [&] { return LaptopTelemetry::quietWatts(report, switches); };
  switches.displays[1].brightness = 0.5;
  EXPECT_DOUBLE_EQ(watts(), 2 + 0.6 + 1.5);
  switches.displays[1].brightness = 0;
  EXPECT_DOUBLE_EQ(watts(), 2 + 0.6);
  switches.displays[1].enabled = false;
  report.displays = {{1, true}, {2, false}};  // the external one has a plug of its own
  EXPECT_DOUBLE_EQ(watts(), 2);
  switches.acMode["lowpowermode"] = 1;
  EXPECT_DOUBLE_EQ(watts(), 2) << "it runs on its battery";
  report.battery->externalConnected = true;
  EXPECT_DOUBLE_EQ(watts(), 1.7);
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
  const Telemetry before = read();
  laptop.advance(300);
  EXPECT_EQ(*read().accumulatedSystemLoad - *before.accumulatedSystemLoad, 20'000) << "ten periods at once";
  laptop.edit([](LaptopReport& report) { report.battery->powerTelemetry = Telemetry{1234, std::nullopt, 7}; });
  EXPECT_EQ(read().systemLoad, 1234) << "what the report says itself";
}

}  // namespace
}  // namespace tovi
