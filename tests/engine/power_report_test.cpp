// The power report: each suspect's words, and what is known of the power test.

#include "engine/PowerReport.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tovi {
namespace {

using Json = nlohmann::json;

Json suspect(const PowerReadings& readings, const std::string& id) {
  const Json report = reports::powerReport(readings);
  for (const Json& entry : report["suspects"]) {
    if (entry["id"] == id) return entry;
  }
  return nullptr;
}

PowerReadings supervising() {
  PowerReadings readings;
  readings.lidClosed = readings.holding = true;
  return readings;
}

TEST(PowerReport, TheScreenIsASuspectOnlyWhileItStaysOn) {
  auto locks = supervising();
  locks.config.lockOnClose = true;
  auto off = supervising();
  off.config.screenOffNoLock = off.screenOff = true;
  auto willBeOff = off;
  willBeOff.lidClosed = willBeOff.screenOff = false;
  auto tested = off;
  tested.testRunning = true;
  tested.screenOff = false;
  auto refused = off;
  refused.screenOff = false;
  const struct {
    PowerReadings readings;
    bool active;
    const char* title;
  } cases[] = {
      {locks, false, "Screen sleeps with the lid closed (locks)"},
      {off, false, "Screen switches fully off with the lid closed, no lock screen"},
      {willBeOff, false, "Screen switches fully off with the lid closed, no lock screen"},
      {tested, false, "Screen switches fully off with the lid closed, no lock screen"},
      {refused, false, "Screen off was refused by macOS; it stays dark instead"},
      {supervising(), true, "Screen stays on at zero brightness with the lid closed"},
      {PowerReadings{}, true, "Screen stays on at zero brightness with the lid closed"},
  };
  for (const auto& row : cases) {
    const Json screen = suspect(row.readings, "screen");
    EXPECT_EQ(screen["title"], row.title);
    EXPECT_EQ(screen["active"], row.active) << row.title;
    EXPECT_EQ(screen.contains("why"), row.active);
    EXPECT_EQ(screen.contains("tradeoff"), row.active);
    EXPECT_EQ(screen["setting"], "screen_off");
    EXPECT_EQ(screen["suggested_value"], true);
  }
}

TEST(PowerReport, BackgroundWorkIsCountedAndNamed) {
  PowerReadings readings = supervising();
  EXPECT_EQ(suspect(readings, "simulators")["title"], "No simulators or previews running");
  EXPECT_EQ(suspect(readings, "simulators")["active"], false);
  EXPECT_EQ(suspect(readings, "background_audio")["title"], "Nothing holding the speakers open");
  readings.background.simulators = {11, 12, 13};
  readings.background.previews = {20, 21};
  readings.background.simulatorDevices = 1;
  readings.background.audio = {{30, "webhelper"}, {31, "avconferenced"}, {32, "webhelper"}};
  Json simulators = suspect(readings, "simulators");
  EXPECT_EQ(simulators["title"], "1 booted simulator(s) and 2 preview process(es): 5 processes");
  EXPECT_EQ(simulators["active"], true);
  EXPECT_FALSE(simulators.contains("note"));
  EXPECT_EQ(suspect(readings, "background_audio")["title"], "Holding the speakers open: avconferenced, webhelper");
  readings.background.agentUsesXcode = true;
  EXPECT_EQ(suspect(readings, "simulators")["note"],
            "An agent is connected to Xcode, so Xcode, simulators and previews are left alone.");
  readings.background.testsRunning = true;
  EXPECT_EQ(suspect(readings, "simulators")["note"], "Tests are running, so simulators are left alone.");
}

TEST(PowerReport, OtherSuspectsNameTheirSetting) {
  PowerReadings readings;
  readings.config.preset = Preset::balanced;
  EXPECT_EQ(suspect(readings, "apps")["title"], "No other app is busy");
  readings.busy = {{"Xcode", 12.34, AppRule::slow}, {"Slack", 1, AppRule::pause}};
  const Json apps = suspect(readings, "apps");
  EXPECT_EQ(apps["title"], "Busy apps: Xcode 12.3 W (slow), Slack 1.0 W (pause)");
  EXPECT_EQ(apps["value"], "balanced");
  EXPECT_EQ(apps["suggested_value"], "max_battery");
  EXPECT_EQ(apps["per_app"], "tovi rule <app> pause");

  EXPECT_EQ(suspect(readings, "external_display"), nullptr);
  readings.externalDisplay = true;
  EXPECT_EQ(suspect(readings, "external_display")["title"], "An external display is connected");

  EXPECT_EQ(suspect(readings, "low_power")["title"], "Low Power Mode turns on with the lid closed");
  readings.config.lowPowerWhileClosed = false;
  EXPECT_EQ(suspect(readings, "low_power")["title"], "Low Power Mode stays off with the lid closed");
  EXPECT_EQ(suspect(readings, "low_power")["active"], true);
  readings.config.lowPowerWhileClosed = true;
  readings.config.preset = Preset::speed;
  EXPECT_EQ(suspect(readings, "low_power")["active"], true);
}

TEST(PowerReport, EachSuspectCarriesItsOwnMeasurement) {
  PowerReadings readings;
  readings.effects = {{"simulators", 1.234}, {"audio", 0.5},  {"apps", 4},
                      {"low_power", 2},      {"screen", 0.7}, {"screen_off", 0.6}};
  const std::map<std::string, double> expected{
      {"simulators", 1.23}, {"background_audio", 0.5}, {"apps", 4}, {"low_power", 2}, {"screen", 0.6}};
  for (const auto& [id, watts] : expected) EXPECT_EQ(suspect(readings, id)["measured_saving_watts"], watts) << id;
  readings.config.lockOnClose = true;
  EXPECT_EQ(suspect(readings, "screen")["measured_saving_watts"], 0.7);
  readings.effects = {{"screen", 0.7}};
  readings.config.lockOnClose = false;
  EXPECT_EQ(suspect(readings, "screen")["measured_saving_watts"], 0.7) << "better than nothing";
  EXPECT_FALSE(suspect(readings, "apps").contains("measured_saving_watts"));
}

TEST(PowerReport, TheTestsStateIsOneWordOfFour) {
  const auto test = [](const PowerReadings& readings) { return reports::powerReport(readings)["power_test"]; };
  PowerReadings readings;
  EXPECT_EQ(test(readings), Json({{"state", "not run yet"}}));
  readings.effects = {{"total", 3.456}, {"closed_with", 5}, {"closed_without", 9}};
  EXPECT_EQ(test(readings), Json({{"state", "done"},
                                  {"measured_total_saving_watts", 3.46},
                                  {"measured_closed_watts", {{"with_savings", 5}, {"without_savings", 9}}}}));
  readings.effects.erase("total");
  readings.unclear = {"total"};
  EXPECT_EQ(test(readings)["measured_total_saving_watts"],
            "unclear (the Mac's own load moved too much; run it again when agents are quiet)");
  EXPECT_EQ(test(readings)["state"], "done");
  readings.testAborted = "the lid was opened";
  EXPECT_EQ(test(readings)["state"], "aborted: the lid was opened");
  readings.testRunning = true;
  EXPECT_EQ(test(readings)["state"], "running");
  readings.testProgress = "Measuring, 1 of 4";
  EXPECT_EQ(test(readings)["state"], "Measuring, 1 of 4");
}

TEST(PowerReport, ItsFiguresSayWhereTheyComeFrom) {
  PowerReadings readings;
  readings.appsWatts = 3.19;
  Json report = reports::powerReport(readings);
  EXPECT_EQ(report["measured"], "battery discharge (only on battery)");
  EXPECT_EQ(report["source"], "battery");
  EXPECT_FALSE(report.contains("system_watts"));
  EXPECT_TRUE(report["learned_open_watts"].is_null());
  EXPECT_EQ(report["apps_total_watts"], 3.1);
  readings.counted = readings.lidClosed = true;
  readings.systemWatts = 6;
  readings.closedDraw = 3;
  report = reports::powerReport(readings);
  EXPECT_EQ(report["measured"], "battery controller (whole Mac, works on the charger)");
  EXPECT_EQ(report["source"], "controller");
  EXPECT_EQ(report["system_watts"], 6);
  EXPECT_EQ(report["learned_closed_watts"], 3);
  EXPECT_EQ(report["lid_closed"], true);
  EXPECT_EQ(report["keeping_awake"], false);
}

}  // namespace
}  // namespace tovi
