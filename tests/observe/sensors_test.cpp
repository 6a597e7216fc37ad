#include "observe/Sensors.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

constexpr Display kBuiltIn{1, true};
constexpr Display kExternal{2, false};

TEST(Lid, CountsAsShutOnlyWithoutAScreenBeside) {
  struct Case {
    const char* name;
    LaptopLid lid;
    std::vector<Display> displays;
    bool hasLid, closed;
  };
  const Case cases[] = {
      {"shut", LaptopLid::closed, {kBuiltIn}, true, true},
      {"shut, panel gone from the list", LaptopLid::closed, {}, true, true},
      {"shut at a desk", LaptopLid::closed, {kBuiltIn, kExternal}, true, false},
      {"shut, only the external one left", LaptopLid::closed, {kExternal}, true, false},
      {"no lid at all", LaptopLid::none, {kExternal}, false, false},
  };
  for (const Case& one : cases) {
    MemoryLaptop laptop;
    laptop.edit([&](LaptopReport& report) {
      report.lid = one.lid;
      report.displays = one.displays;
    });
    EXPECT_EQ(Registry::hasLid(laptop.machine()), one.hasLid) << one.name;
    EXPECT_EQ(Registry::lidClosed(laptop.machine()), one.closed) << one.name;
  }
}

BatteryProperties battery(std::int64_t now, std::int64_t full) {
  BatteryProperties properties;
  properties.currentCapacity = now;
  properties.maxCapacity = full;
  return properties;
}

std::optional<BatteryReading> readingOf(const std::optional<BatteryProperties>& properties) {
  MemoryLaptop laptop;
  laptop.edit([&](LaptopReport& report) { report.battery = properties; });
  return Battery::read(laptop.machine());
}

TEST(BatteryGauge, WithoutBothCapacitiesThereIsNoReading) {
  EXPECT_EQ(readingOf(std::nullopt), std::nullopt);
  EXPECT_EQ(readingOf(battery(10, 0)), std::nullopt);
  BatteryProperties half = battery(10, 100);
  half.currentCapacity.reset();
  EXPECT_EQ(readingOf(half), std::nullopt);
}

TEST(BatteryGauge, PercentIsCutAndStaysInRange) {
  const std::tuple<std::int64_t, std::int64_t, int> cases[] = {
      {2999, 3000, 99}, {3050, 3000, 100}, {29, 3000, 0}, {-5, 3000, 0}, {INT64_MAX, 1, 100}, {INT64_MIN, 1, 0},
  };
  for (const auto& [now, full, percent] : cases) {
    const auto reading = readingOf(battery(now, full));
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->percent, percent) << now << " of " << full;
  }
}

TEST(BatteryGauge, DrawIsTheDischargeAlone) {
  using Figure = std::optional<std::int64_t>;
  const std::tuple<Figure, Figure, Figure, double> cases[] = {
      {-500, -900, 12000, 6}, {std::nullopt, -900, 12000, 10.8}, {0, -900, 12000, 0},
      {700, -900, 12000, 0},  {-500, -900, std::nullopt, 0},     {std::nullopt, std::nullopt, 12000, 0},
  };
  for (const auto& [instant, average, millivolts, watts] : cases) {
    BatteryProperties properties = battery(50, 100);
    properties.instantAmperage = instant;
    properties.amperage = average;
    properties.voltage = millivolts;
    EXPECT_DOUBLE_EQ(readingOf(properties)->watts, watts);
  }
}

TEST(BatteryGauge, AnEstimateCountsOnlyWhenItIsOneOnBattery) {
  const std::tuple<std::int64_t, bool, std::optional<int>> cases[] = {
      {0, false, std::nullopt},     {1, false, 1},
      {5999, false, 5999},          {6000, false, std::nullopt},
      {65535, false, std::nullopt}, {-1, false, std::nullopt},
      {90, true, std::nullopt},
  };
  for (const auto& [minutes, onAC, expected] : cases) {
    BatteryProperties properties = battery(50, 100);
    properties.timeRemaining = minutes;
    properties.externalConnected = onAC;
    EXPECT_EQ(readingOf(properties)->minutesLeft, expected) << minutes;
  }
}

// The battery of the simulated laptop gets telemetry of its own if it has none; an empty one keeps it out.
std::optional<PowerSample> sampleOf(BatteryProperties properties, BatteryProperties::Telemetry telemetry) {
  MemoryLaptop laptop;
  properties.powerTelemetry = telemetry;
  laptop.edit([&](LaptopReport& report) { report.battery = properties; });
  return PowerSensor::sample(laptop.machine());
}

TEST(PowerSource, TheControllersFigureComesBeforeTheBatterys) {
  BatteryProperties discharging = battery(50, 100);
  discharging.voltage = 12000;
  discharging.instantAmperage = -500;
  const auto watts = [&](BatteryProperties::Telemetry telemetry) { return sampleOf(discharging, telemetry)->watts; };
  const auto counters = [&](BatteryProperties::Telemetry telemetry) {
    const auto sample = sampleOf(discharging, telemetry);
    return std::pair{sample->accumulated, sample->count};
  };
  using Counters = std::pair<std::optional<std::int64_t>, std::optional<std::int64_t>>;
  EXPECT_EQ(watts({8500, 100, 2}), 8.5);
  EXPECT_EQ(counters({8500, 100, std::nullopt}), (Counters{100, std::nullopt}));
  // No figure yet, but counters from which the next round makes one.
  EXPECT_EQ(watts({0, 100, 2}), std::nullopt);
  EXPECT_EQ(counters({std::nullopt, 100, 2}), (Counters{100, 2}));
  // Neither: the battery's own, without half a pair of counters.
  EXPECT_EQ(watts({0, 100, std::nullopt}), 6);
  EXPECT_EQ(counters({0, 100, std::nullopt}), Counters{});
}

TEST(PowerSource, OnTheChargerNobodyKnows) {
  BatteryProperties charging = battery(50, 100);
  charging.voltage = 12000;
  charging.instantAmperage = 900;
  EXPECT_EQ(sampleOf(charging, {}), std::nullopt);
  charging.instantAmperage = -900;
  charging.voltage = 0;
  EXPECT_EQ(sampleOf(charging, {}), std::nullopt);
}

TEST(MeanPower, NeedsCountersThatGrew) {
  const auto sample = [](std::optional<std::int64_t> sum, std::optional<std::int64_t> count) {
    return PowerSample{std::nullopt, sum, count, Date{}};
  };
  EXPECT_EQ(meanWatts(sample(10'000, 1), sample(40'000, 5)), 7.5);
  EXPECT_EQ(meanWatts(sample(10'000, 5), sample(40'000, 5)), std::nullopt);
  EXPECT_EQ(meanWatts(sample(40'000, 1), sample(10'000, 5)), std::nullopt) << "the controller started anew";
  EXPECT_EQ(meanWatts(sample(10'000, 1), sample(40'000, std::nullopt)), std::nullopt);
  EXPECT_TRUE(meanWatts(sample(INT64_MIN, INT64_MIN), sample(INT64_MAX, INT64_MAX))) << "differences beyond 63 bits";
}

}  // namespace
}  // namespace tovi
