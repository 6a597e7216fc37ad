#include "platform/simulated/LaptopReport.h"

#include <gtest/gtest.h>

#include "platform/simulated/LaptopSwitches.h"

namespace tovi {
namespace {

LaptopReport parsed(const std::string& text) { return LaptopReport::parse(text).value(); }

TEST(LaptopReport, AnEmptyFileIsTheDeliveredLaptop) {
  const LaptopReport report = parsed("{}");
  EXPECT_EQ(report.lid, LaptopLid::open);
  EXPECT_EQ(report.thermal, ThermalState::nominal);
  ASSERT_TRUE(report.battery);
  EXPECT_EQ(report.battery->currentCapacity.value() * 100 / report.battery->maxCapacity.value(), 80);
  EXPECT_LT(report.battery->instantAmperage.value(), 0);
  EXPECT_EQ(report.battery->externalConnected, false);
  EXPECT_EQ(report.battery->isCharging, false);
  EXPECT_FALSE(report.battery->powerTelemetry);
  EXPECT_EQ(report.displays, (std::vector<Display>{{1, true}}));
  EXPECT_FALSE(report.locked);
  EXPECT_FALSE(report.gracePeriod);
  EXPECT_TRUE(report.privileged);
  EXPECT_EQ(report.elevation, LaptopElevation::grant);
  EXPECT_EQ(report.applicationsFolder, "/Applications/");
  EXPECT_TRUE(report.refuse.empty());
  EXPECT_TRUE(report.applications.empty());
  EXPECT_TRUE(report.assertions.empty());
  EXPECT_EQ(report.events, LaptopCounters{});
  EXPECT_EQ(report.wattsPerCore, 4.0);
  EXPECT_EQ(report.telemetrySeconds, 30);
}

TEST(LaptopReport, ReadsEveryKey) {
  const LaptopReport report = parsed(R"({
    "lid": "closed", "thermal": 2, "locked": true, "gracePeriod": 5, "privileged": false, "elevation": "cancel",
    "battery": {"CurrentCapacity": 14, "MaxCapacity": 90, "InstantAmperage": -800, "Amperage": -790, "Voltage": 11500,
                "ExternalConnected": true, "IsCharging": true, "TimeRemaining": 61,
                "PowerTelemetryData": {"SystemLoad": 5500.5, "AccumulatedSystemLoad": 99, "SystemLoadAccumulatorCount": 3}},
    "displays": [{"id": 1, "builtin": true}, {"id": 4}], "applicationsFolder": "/opt/build",
    "refuse": ["pmset -a disablesleep 1"],
    "applications": [{"name": "Foo", "bundleIdentifier": "com.foo", "path": "/Applications/Foo.app/", "pid": 70,
                      "regular": false}],
    "assertions": [{"pid": 9, "Process Name": "caffeinate", "AssertionTrueType": "A", "AssertType": "B",
                    "AssertName": "C", "AssertStartWhen": 1000.5, "AssertionOnBehalfOfPID": 8,
                    "ResourcesUsed": ["audio-out"]}],
    "events": {"willSleep": 1, "poweredOn": 2, "didWake": 3}, "wattsPerCore": 2.5, "telemetrySeconds": 1
  })");
  EXPECT_EQ(report.lid, LaptopLid::closed);
  EXPECT_EQ(report.thermal, ThermalState::serious);
  EXPECT_EQ(report.gracePeriod, 5);
  EXPECT_EQ(report.elevation, LaptopElevation::cancel);
  EXPECT_EQ(report.battery->amperage, -790);
  EXPECT_EQ(report.battery->timeRemaining, 61);
  EXPECT_EQ(report.battery->powerTelemetry->systemLoad, 5500.5);
  EXPECT_EQ(report.battery->powerTelemetry->systemLoadAccumulatorCount, 3);
  EXPECT_EQ(report.displays, (std::vector<Display>{{1, true}, {4, false}}));
  EXPECT_EQ(report.applicationsFolder, "/opt/build/") << "callers compare beginnings with its final slash";
  ASSERT_EQ(report.applications.size(), 1u);
  EXPECT_EQ(report.applications[0].path, "/Applications/Foo.app");
  EXPECT_FALSE(report.applications[0].regular);
  ASSERT_EQ(report.assertions.size(), 1u);
  EXPECT_EQ(report.assertions[0].startedAt, dateFromUnix(1000.5));
  EXPECT_EQ(report.assertions[0].onBehalfOf, 8);
  EXPECT_EQ(report.assertions[0].resourcesUsed, std::vector<std::string>{"audio-out"});
  EXPECT_EQ(report.events, (LaptopCounters{1, 2, 3}));
  EXPECT_EQ(report.wattsPerCore, 2.5);
  EXPECT_EQ(report.telemetrySeconds, 1);
  EXPECT_EQ(parsed(report.toJson()).toJson(), report.toJson()) << "what is written reads back";
  EXPECT_NE(report.toJson(), LaptopReport{}.toJson());
}

TEST(LaptopReport, AWrongTypedValueCountsAsMissing) {
  const std::string ordinary = LaptopReport{}.toJson();
  for (const char* text : {R"({"lid": 1})",
                           R"({"lid": "ajar"})",
                           R"({"thermal": "hot"})",
                           R"({"thermal": 4})",
                           R"({"thermal": -1})",
                           R"({"thermal": 18446744073709551615})",
                           R"({"thermal": 1.5})",
                           R"({"battery": 14})",
                           R"({"battery": [1]})",
                           R"({"displays": {"id": 2}})",
                           R"({"locked": 1})",
                           R"({"gracePeriod": "5"})",
                           R"({"gracePeriod": 99999999999})",
                           R"({"privileged": "no"})",
                           R"({"elevation": "maybe"})",
                           R"({"applicationsFolder": false})",
                           R"({"refuse": "pmset"})",
                           R"({"refuse": [1, null]})",
                           R"({"applications": [1]})",
                           R"({"assertions": [{"Process Name": "without a pid"}]})",
                           R"({"assertions": [{"pid": 4294967298}]})",
                           R"({"events": 3})",
                           R"({"events": {"didWake": "1"}})",
                           R"({"wattsPerCore": "4"})",
                           R"({"wattsPerCore": -1})",
                           R"({"telemetrySeconds": 0})",
                           R"({"unknown": 1})"}) {
    EXPECT_EQ(parsed(text).toJson(), ordinary) << text;
  }
}

TEST(LaptopReport, ABatteryIsTakenLiterally) {
  EXPECT_FALSE(parsed(R"({"battery": null})").battery);
  const auto bare = parsed(R"({"battery": {"Voltage": "12", "CurrentCapacity": 7}})").battery.value();
  EXPECT_EQ(bare.currentCapacity, 7);
  EXPECT_FALSE(bare.maxCapacity) << "no default fills a battery that is described";
  EXPECT_FALSE(bare.voltage);
  EXPECT_FALSE(bare.externalConnected);
  EXPECT_FALSE(parsed(R"({"battery": {"PowerTelemetryData": 3}})").battery->powerTelemetry);
  EXPECT_TRUE(parsed(R"({"battery": {"PowerTelemetryData": {}}})").battery->powerTelemetry);
}

TEST(LaptopReport, WhatIsNoObjectIsNotAReport) {
  for (const char* text : {"", "{", "[]", "null", "{\"lid\": \"clo", "{} trailing", "{\"lid\": \"\xff\"}"}) {
    EXPECT_FALSE(LaptopReport::parse(text)) << text;
    EXPECT_FALSE(LaptopSwitches::parse(text)) << text;
  }
}

TEST(LaptopReport, NothingButBracketsIsNotAReport) {
  const std::string deep = R"({"a":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}";
  EXPECT_FALSE(LaptopReport::parse(deep));
  EXPECT_FALSE(parsed(LaptopReport::withPrivileged(deep, false, {})).privileged);
}

TEST(LaptopReport, SettingTheRuleKeepsWhatAPersonWrote) {
  const std::string text = LaptopReport::withPrivileged(R"({"note": "mine", "lid": "closed"})", false, {});
  EXPECT_NE(text.find(R"("note": "mine")"), std::string::npos);
  EXPECT_FALSE(parsed(text).privileged);
  EXPECT_EQ(parsed(text).lid, LaptopLid::closed);
  LaptopReport lastGood;
  lastGood.lid = LaptopLid::none;
  const LaptopReport mended = parsed(LaptopReport::withPrivileged("{broken", false, lastGood));
  EXPECT_EQ(mended.lid, LaptopLid::none);
  EXPECT_FALSE(mended.privileged);
}

TEST(LaptopSwitches, HaveTheNamesThatOtherProgramsRead) {
  LaptopSwitches switches;
  switches.displays[1] = {false, 0.8};
  switches.nextWake = 12.5;
  EXPECT_EQ(switches.toJson(), R"({
  "SleepDisabled": false,
  "asleep": false,
  "powerMode": {
    "battery": {
      "lowpowermode": 0
    },
    "ac": {
      "lowpowermode": 0
    }
  },
  "AutoBackup": 1,
  "displays": {
    "1": {
      "enabled": false,
      "brightness": 0.8
    }
  },
  "displayAssertion": false,
  "displayAsleep": false,
  "watchdogLoaded": false,
  "nextWake": 12.5
}
)");
  EXPECT_EQ(LaptopSwitches::parse(switches.toJson()), switches);
}

TEST(LaptopSwitches, AWrongTypedValueCountsAsMissing) {
  for (const char* text :
       {"{}", R"({"SleepDisabled": 1})", R"({"powerMode": 3})", R"({"powerMode": {"battery": 0}})",
        R"({"AutoBackup": true})", R"({"displays": {"x": {}, "-1": {}, "3": 4}})", R"({"nextWake": "soon"})"}) {
    EXPECT_EQ(LaptopSwitches::parse(text), LaptopSwitches{}) << text;
  }
  EXPECT_EQ(LaptopSwitches::parse(R"({"displays": {"1": {"brightness": 7}}})")->display(1), DisplaySwitch{});
}

}  // namespace
}  // namespace tovi
