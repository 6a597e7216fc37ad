#include "engine/PowerReport.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "engine/PowerTest.h"

namespace tovi::reports {

namespace {

using json::Value;

constexpr std::size_t kNamedApps = 5;
constexpr double kMostWatts = 1e6;  // more is a broken counter

constexpr char kHowToMeasure[] =
    "tovi power test (lid closed, about 3-4 minutes): all savings off, on, off, on, each read over a full 30 s update "
    "of the battery controller. --detailed adds each saving on its own (about 1.5 min each). --screen includes the "
    "screen (that locks the Mac).";
constexpr char kUnclear[] = "unclear (the Mac's own load moved too much; run it again when agents are quiet)";

double hundredths(double watts) { return json::rounded(watts, 2); }

Value orNull(const std::optional<double>& watts) { return watts ? Value(hundredths(*watts)) : Value(nullptr); }

// What the first of these savings that was measured is worth.
void addMeasured(Value& suspect, const PowerReadings& readings, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    const auto at = readings.effects.find(key);
    if (at == readings.effects.end()) continue;
    suspect["measured_saving_watts"] = hundredths(at->second);
    return;
  }
}

void addSetting(Value& suspect, const char* setting, const Value& value, const Value& suggested) {
  suspect["setting"] = setting;
  suspect["value"] = value;
  suspect["suggested_value"] = suggested;
}

Value screen(const PowerReadings& readings) {
  const Config& config = readings.config;
  Value suspect{{"id", "screen"}, {"active", false}};
  addSetting(suspect, "screen_off", config.screenOffNoLock, true);
  // While the lid is open, and during a test, which switches it to and fro, the setting tells.
  const bool wouldBeOff = !(readings.lidClosed && readings.holding) || readings.testRunning;
  if (config.lockOnClose) {
    suspect["title"] = "Screen sleeps with the lid closed (locks)";
  } else if (readings.screenOff || (config.screenOffNoLock && wouldBeOff)) {
    suspect["title"] = "Screen switches fully off with the lid closed, no lock screen";
  } else if (config.screenOffNoLock) {
    suspect["title"] = "Screen off was refused by macOS; it stays dark instead";
  } else {
    suspect["active"] = true;
    suspect["title"] = "Screen stays on at zero brightness with the lid closed";
    suspect["why"] = "A dark screen still keeps the display hardware and window server running.";
    suspect["tradeoff"] =
        "Experimental: switches the built-in display off without sleeping it (no lock screen). Alternative: "
        "lock_on_close on (locks on reopen).";
  }
  if (config.lockOnClose) {
    addMeasured(suspect, readings, {"screen", "screen_off"});
  } else {
    addMeasured(suspect, readings, {"screen_off", "screen"});
  }
  return suspect;
}

Value simulators(const PowerReadings& readings) {
  const BackgroundWork::Found& found = readings.background;
  const std::size_t processes = found.simulators.size() + found.previews.size();
  Value suspect{{"id", "simulators"}, {"active", processes > 0}};
  suspect["title"] = processes == 0 ? "No simulators or previews running"
                                    : fmt::format("{} booted simulator(s) and {} preview process(es): {} processes",
                                                  found.simulatorDevices, found.previews.size(), processes);
  addSetting(suspect, "pause_simulators", readings.config.pauseSimulators, true);
  if (found.testsRunning) {
    suspect["note"] = "Tests are running, so simulators are left alone.";
  } else if (found.agentUsesXcode) {
    suspect["note"] = "An agent is connected to Xcode, so Xcode, simulators and previews are left alone.";
  }
  addMeasured(suspect, readings, {"simulators"});
  return suspect;
}

Value backgroundAudio(const PowerReadings& readings) {
  std::set<std::string> names;
  for (const auto& [pid, name] : readings.background.audio) names.insert(name);
  Value suspect{{"id", "background_audio"}, {"active", !names.empty()}};
  suspect["title"] = names.empty() ? "Nothing holding the speakers open"
                                   : fmt::format("Holding the speakers open: {}", fmt::join(names, ", "));
  addSetting(suspect, "pause_background_audio", readings.config.pauseBackgroundAudio, true);
  addMeasured(suspect, readings, {"audio"});
  return suspect;
}

Value apps(const PowerReadings& readings) {
  std::vector<std::string> named;
  for (const PowerReadings::BusyApp& app : readings.busy) {
    if (named.size() == kNamedApps) break;
    named.push_back(fmt::format("{} {:.1f} W ({})", app.name, app.watts, rawValue(app.rule)));
  }
  Value suspect{{"id", "apps"}, {"active", !named.empty()}};
  suspect["title"] = named.empty() ? "No other app is busy" : fmt::format("Busy apps: {}", fmt::join(named, ", "));
  addSetting(suspect, "preset", publicName(readings.config.preset), publicName(Preset::longest));
  suspect["per_app"] = "tovi rule <app> pause";
  addMeasured(suspect, readings, {"apps"});
  return suspect;
}

Value externalDisplay() {
  return {{"id", "external_display"},
          {"active", true},
          {"title", "An external display is connected"},
          {"why",
           "With a display attached the Mac keeps its graphics and display pipeline running, often several watts. "
           "Unplug it if nobody is using it."}};
}

Value lowPower(const PowerReadings& readings) {
  const bool turnsOn = PowerTest::savingOn("low_power", readings.config, readings.screenOff);
  Value suspect{{"id", "low_power"}, {"active", !turnsOn}};
  suspect["title"] =
      turnsOn ? "Low Power Mode turns on with the lid closed" : "Low Power Mode stays off with the lid closed";
  addSetting(suspect, "low_power", readings.config.lowPowerWhileClosed, true);
  addMeasured(suspect, readings, {"low_power"});
  return suspect;
}

Value powerTest(const PowerReadings& readings) {
  Value test{{"state", powerTestState(readings)}};
  const auto effect = [&](const char* key) -> std::optional<double> {
    const auto at = readings.effects.find(key);
    return at != readings.effects.end() ? std::optional{at->second} : std::nullopt;
  };
  if (const auto total = effect("total")) test["measured_total_saving_watts"] = hundredths(*total);
  if (readings.unclear.contains("total")) test["measured_total_saving_watts"] = kUnclear;
  const auto with = effect("closed_with");
  const auto without = effect("closed_without");
  if (with && without) {
    test["measured_closed_watts"] = {{"with_savings", hundredths(*with)}, {"without_savings", hundredths(*without)}};
  }
  return test;
}

}  // namespace

std::string powerTestState(const PowerReadings& readings) {
  if (readings.testRunning) return readings.testProgress.value_or("running");
  if (readings.testAborted) return "aborted: " + *readings.testAborted;
  return readings.effects.empty() && readings.unclear.empty() ? "not run yet" : "done";
}

Value powerReport(const PowerReadings& readings) {
  Value suspects = Value::array({screen(readings), simulators(readings), backgroundAudio(readings), apps(readings)});
  if (readings.externalDisplay) suspects.push_back(externalDisplay());
  suspects.push_back(lowPower(readings));
  Value report{
      {"measured", readings.counted ? "battery controller (whole Mac, works on the charger)"
                                    : "battery discharge (only on battery)"},
      {"source", readings.counted ? "controller" : "battery"},
      {"lid_closed", readings.lidClosed},
      {"keeping_awake", readings.holding},
      {"learned_open_watts", orNull(readings.openDraw)},
      {"learned_closed_watts", orNull(readings.closedDraw)},
      {"apps_total_watts", std::trunc(std::min(readings.appsWatts, kMostWatts) * 10) / 10},
      {"suspects", std::move(suspects)},
      {"power_test", powerTest(readings)},
      {"how_to_measure", kHowToMeasure},
  };
  if (readings.systemWatts) report["system_watts"] = hundredths(*readings.systemWatts);
  return report;
}

}  // namespace tovi::reports
