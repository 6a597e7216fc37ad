// The power report: each suspect's words, and what is known of the power test.

#include "engine/PowerReport.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tovi {
namespace {

using Json = nlohmann::json;

struct PowerReport : testing::Test {
  PowerReadings readings;

  Json suspect(const std::string& id) {
    const Json report = reports::powerReport(readings);
    for (const Json& entry : report["suspects"]) {
      if (entry["id"] == id) return entry;
    }
    return nullptr;
  }
  Json test() { return reports::powerReport(readings)["power_test"]; }
};

TEST_F(PowerReport, TheScreenIsASuspectOnlyWhileItStaysOn) {
  const auto expectScreen = [&](bool active, const char* title) {
    const Json screen = suspect("screen");
    EXPECT_EQ(screen["title"], title);
    EXPECT_TRUE(screen["active"] == active && screen.contains("why") == active && screen.contains("tradeoff") == active)
        << screen;
  };
  const char kOff[] = "Screen switches fully off with the lid closed, no lock screen";
  expectScreen(true, "Screen stays on at zero brightness with the lid closed");
  readings.config.screenOffNoLock = true;
  expectScreen(false, kOff);  // it will
  readings.lidClosed = readings.holding = readings.screenOff = true;
  expectScreen(false, kOff);
  readings.screenOff = false;
  expectScreen(false, "Screen off was refused by macOS; it stays dark instead");
  readings.testRunning = true;
  expectScreen(false, kOff);
  readings.config.lockOnClose = true;
  expectScreen(false, "Screen sleeps with the lid closed (locks)");
}

// The others, a line each: the active ones with a star.
TEST_F(PowerReport, OtherSuspectsNameWhatRuns) {
  const auto lines = [&] {
    std::string text;
    const Json report = reports::powerReport(readings);
    for (const Json& entry : report["suspects"]) {
      if (entry["id"] != "screen") text += (entry["active"] == true ? "* " : "- ") + entry.value("title", "") + "\n";
    }
    return text;
  };
  EXPECT_EQ(lines(),
            "- No simulators or previews running\n"
            "- Nothing holding the speakers open\n"
            "- No other app is busy\n"
            "- Low Power Mode turns on with the lid closed\n");
  readings.background.simulators = {11, 12, 13};
  readings.background.previews = {20, 21};
  readings.background.simulatorDevices = 1;
  readings.background.audio = {{30, "webhelper"}, {31, "avconferenced"}, {32, "webhelper"}};
  readings.busy = {{"Xcode", 12.34, AppRule::slow}, {"Slack", 1, AppRule::pause}};
  readings.externalDisplay = true;
  readings.config.lowPowerWhileClosed = false;
  EXPECT_EQ(suspect("apps")["suggested_value"], "max_battery");
  EXPECT_EQ(lines(),
            "* 1 booted simulator(s) and 2 preview process(es): 5 processes\n"
            "* Holding the speakers open: avconferenced, webhelper\n"
            "* Busy apps: Xcode 12.3 W (slow), Slack 1.0 W (pause)\n"
            "* An external display is connected\n"
            "* Low Power Mode stays off with the lid closed\n");
  readings.background.agentUsesXcode = true;
  EXPECT_EQ(suspect("simulators")["note"],
            "An agent is connected to Xcode, so Xcode, simulators and previews are left alone.");
  readings.background.testsRunning = true;
  EXPECT_EQ(suspect("simulators")["note"], "Tests are running, so simulators are left alone.");
  readings.config.lowPowerWhileClosed = true;
  readings.config.preset = Preset::speed;
  EXPECT_EQ(suspect("low_power")["active"], true);
}

TEST_F(PowerReport, EachSuspectCarriesItsOwnMeasurement) {
  readings.effects = {{"simulators", 1.234}, {"audio", 0.5}, {"low_power", 2}, {"screen", 0.7}, {"screen_off", 0.6}};
  const auto measured = [&](const char* id) { return suspect(id).value("measured_saving_watts", -1.0); };
  EXPECT_EQ(measured("simulators"), 1.23);
  EXPECT_EQ(measured("background_audio"), 0.5);
  EXPECT_EQ(measured("low_power"), 2);
  EXPECT_EQ(measured("apps"), -1);
  EXPECT_EQ(measured("screen"), 0.6);
  readings.config.lockOnClose = true;
  EXPECT_EQ(measured("screen"), 0.7);
  readings.effects.erase("screen_off");
  readings.config.lockOnClose = false;
  EXPECT_EQ(measured("screen"), 0.7) << "better than nothing";
}

TEST_F(PowerReport, TheTestsStateIsOneWordOfFour) {
  EXPECT_EQ(test(), Json({{"state", "not run yet"}}));
  readings.effects = {{"total", 3.456}, {"closed_with", 5}, {"closed_without", 9}};
  EXPECT_EQ(test(), Json({{"state", "done"},
                          {"measured_total_saving_watts", 3.46},
                          {"measured_closed_watts", {{"with_savings", 5}, {"without_savings", 9}}}}));
  readings.effects.erase("total");
  readings.unclear = {"total"};
  EXPECT_EQ(test()["measured_total_saving_watts"],
            "unclear (the Mac's own load moved too much; run it again when agents are quiet)");
  readings.testAborted = "the lid was opened";
  EXPECT_EQ(test()["state"], "aborted: the lid was opened");
  readings.testRunning = true;
  EXPECT_EQ(test()["state"], "running");
  readings.testProgress = "Measuring, 1 of 4";
  EXPECT_EQ(test()["state"], "Measuring, 1 of 4");
}

TEST_F(PowerReport, ItsFiguresSayWhereTheyComeFrom) {
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
  EXPECT_TRUE(report["system_watts"] == 6 && report["learned_closed_watts"] == 3) << report;
  EXPECT_TRUE(report["lid_closed"] == true && report["keeping_awake"] == false) << report;
}

}  // namespace
}  // namespace tovi
