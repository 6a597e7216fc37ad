#include "platform/simulated/LaptopReport.h"

#include <gtest/gtest.h>

#include "platform/simulated/LaptopSwitches.h"

namespace tovi {
namespace {

LaptopReport parsed(const std::string& text) { return LaptopReport::parse(text).value(); }

std::string withoutBlanks(std::string text) {
  std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
  return text;
}

TEST(LaptopReport, AnEmptyFileIsTheDeliveredLaptop) {
  EXPECT_EQ(withoutBlanks(parsed("{}").toJson()), withoutBlanks(R"({
    "lid": "open", "thermal": 0,
    "battery": {"CurrentCapacity": 80, "MaxCapacity": 100, "InstantAmperage": -500, "Voltage": 12000,
                "ExternalConnected": false, "IsCharging": false, "TimeRemaining": 560},
    "displays": [{"id": 1, "builtin": true}], "locked": false, "privileged": true, "elevation": "grant",
    "applicationsFolder": "/Applications/", "refuse": [], "applications": [], "assertions": [],
    "events": {"willSleep": 0, "poweredOn": 0, "didWake": 0}, "wattsPerCore": 4.0, "telemetrySeconds": 30.0
  })"));
}

TEST(LaptopReport, ReadsEveryKey) {
  const std::string text = R"({
    "lid": "closed", "thermal": 2,
    "battery": {"CurrentCapacity": 14, "MaxCapacity": 90, "InstantAmperage": -800, "Amperage": -790, "Voltage": 11500,
                "ExternalConnected": true, "IsCharging": true, "TimeRemaining": 61,
                "PowerTelemetryData": {"SystemLoad": 5500.5, "AccumulatedSystemLoad": 99, "SystemLoadAccumulatorCount": 3}},
    "displays": [{"id": 1, "builtin": true}, {"id": 4, "builtin": false}], "locked": true, "gracePeriod": 5,
    "privileged": false, "elevation": "cancel", "applicationsFolder": "/opt/build/",
    "refuse": ["pmset -a disablesleep 1"],
    "applications": [{"name": "Foo", "bundleIdentifier": "com.foo", "path": "/Applications/Foo.app", "pid": 70,
                      "regular": false}],
    "assertions": [{"pid": 9, "Process Name": "caffeinate", "AssertionTrueType": "A", "AssertType": "B",
                    "AssertName": "C", "AssertStartWhen": 1000.5, "AssertionOnBehalfOfPID": 8,
                    "ResourcesUsed": ["audio-out"]}],
    "events": {"willSleep": 1, "poweredOn": 2, "didWake": 3}, "wattsPerCore": 2.5, "telemetrySeconds": 1.0
  })";
  EXPECT_EQ(withoutBlanks(parsed(text).toJson()), withoutBlanks(text));
  EXPECT_EQ(parsed(R"({"applicationsFolder": "/opt/b"})").applicationsFolder, "/opt/b/")
      << "callers compare beginnings";
  EXPECT_EQ(parsed(R"({"applications": [{"path": "/A.app/"}]})").applications.at(0).path, "/A.app");
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
                           R"({"applicationsFolder": false})",
                           R"({"refuse": "pmset"})",
                           R"({"events": 3})",
                           R"({"wattsPerCore": "4"})",
                           R"({"wattsPerCore": -1})",
                           R"({"assertions": [{"Process Name": "without a pid"}]})",
                           R"({"unknown": 1})",
                           R"({"privileged": "no"})",
                           R"({"elevation": "maybe"})",
                           R"({"refuse": [1, null]})",
                           R"({"applications": [1]})",
                           R"({"assertions": [{"pid": 4294967298}]})",
                           R"({"events": {"didWake": "1"}})",
                           R"({"telemetrySeconds": 0})"}) {
    EXPECT_EQ(parsed(text).toJson(), ordinary) << text;
  }
  const auto bare = parsed(R"({"battery": {"Voltage": "12", "PowerTelemetryData": 3}})").battery.value();
  EXPECT_FALSE(bare.maxCapacity || bare.voltage || bare.powerTelemetry) << "a described one is taken literally";
  EXPECT_FALSE(parsed(R"({"battery": null})").battery);
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
  EXPECT_EQ(withoutBlanks(switches.toJson()), withoutBlanks(R"({
    "SleepDisabled": false, "asleep": false, "powerMode": {"battery": {"lowpowermode": 0}, "ac": {"lowpowermode": 0}},
    "AutoBackup": 1, "displays": {"1": {"enabled": false, "brightness": 0.8}}, "displayAssertion": false,
    "displayAsleep": false, "watchdogLoaded": false, "nextWake": 12.5
  })"));
  EXPECT_EQ(LaptopSwitches::parse(switches.toJson()), switches);
}

TEST(LaptopSwitches, AWrongTypedValueCountsAsMissing) {
  for (const char* text :
       {R"({"SleepDisabled": 1})", R"({"powerMode": 3})", R"({"powerMode": {"battery": 0}})", R"({"AutoBackup": true})",
        R"({"displays": {"x": {}, "-1": {}, "3": 4}})", R"({"nextWake": "soon"})"}) {
    EXPECT_EQ(LaptopSwitches::parse(text), LaptopSwitches{}) << text;
  }
}

}  // namespace
}  // namespace tovi
