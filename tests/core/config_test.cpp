#include "core/Config.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <utility>

namespace tovi {
namespace {

Config decoded(const char* text) {
  const auto config = Config::decode(text);
  EXPECT_TRUE(config) << text;
  return config.value_or(Config{});
}

TEST(ConfigReading, OnlyATopLevelThatIsNoObjectFails) {
  for (const char* text : {"", "[]", "[{}]", "null", "3", "{", "{\"mode\": }", "{} trailing", "\xff\xfe"}) {
    EXPECT_FALSE(Config::decode(text)) << text;
  }
  EXPECT_EQ(decoded("{}"), Config{});
  EXPECT_EQ(decoded("{\"nobody knows\": [1, {\"deep\": null}]}"), Config{});
}

TEST(ConfigReading, NumbersAreClampedAndNotRejected) {
  const struct {
    const char* text;
    int Config::*field;
    int expected;
  } cases[] = {
      {R"({"quietMinutes": 0})", &Config::quietMinutes, 1},
      {R"({"quietMinutes": 99999999999})", &Config::quietMinutes, 240},
      {R"({"quietMinutes": 7.0})", &Config::quietMinutes, 7},
      {R"({"quietMinutes": 7.5})", &Config::quietMinutes, 5},
      {R"({"quietMinutes": 1e300})", &Config::quietMinutes, 5},
      {R"({"quietMinutes": true})", &Config::quietMinutes, 5},
      {R"({"batteryFloor": -5})", &Config::batteryFloor, 0},
      {R"({"batteryFloor": 95})", &Config::batteryFloor, 80},
      {R"({"wakeForMinutes": 2})", &Config::wakeForMinutes, 5},
      {R"({"wakeForMinutes": 5000})", &Config::wakeForMinutes, 1440},
      {R"({"checkInMinutes": 20})", &Config::checkInMinutes, 0},
  };
  for (const auto& row : cases) EXPECT_EQ(decoded(row.text).*row.field, row.expected) << row.text;
}

TEST(ConfigReading, ABadValueCostsItsKeyAndNothingElse) {
  const Config config = decoded(R"({
    "mode": "always", "preset": "max_battery", "heatGuard": 0, "hotkey": "yes", "menuBarText": "Battery",
    "customAgents": [{"name": "ok", "executables": ["a"]}, {"name": "no executables"}],
    "watchedApps": [{"id": "x"}], "appRules": {"com.a": "slow", "com.b": "freeze"}, "trackOnly": ["a", 3],
    "sleepWhenDone": false, "ntfyTopic": 12})");
  Config expected;
  expected.sleepWhenDone = false;
  EXPECT_EQ(config, expected);
}

TEST(ConfigReading, ATopicIsCutByCharactersAndNotInsideOne) {
  std::string umlauts;
  for (int count = 0; count < 70; ++count) umlauts += "ü";
  EXPECT_EQ(decoded(("{\"ntfyTopic\": \"" + umlauts + "\"}").c_str()).ntfyTopic, umlauts.substr(0, 128));
}

TEST(ConfigReading, OptionalValuesCountOnlyWhereTheyMakeSense) {
  EXPECT_EQ(decoded(R"({"alwaysUntil": 1e999, "chimeSound": "1e999", "wakeAt": -1e999})").chimeSound, "1e999");
  // A text that was cut in the middle of a character's two halves.
  EXPECT_EQ(decoded(R"({"chimeSound": "\\ud83d \ud83d\ude00 \ud83d"})").chimeSound, "\\ud83d \U0001F600 \uFFFD");
  EXPECT_EQ(decoded(R"({"chimeSound": "\ude00\ud83dx"})").chimeSound, "\uFFFD\uFFFDx");
  for (const char* text :
       {R"({"alwaysUntil": 0})", R"({"alwaysUntil": -1})", R"({"alwaysUntil": "soon"})", R"({"alwaysUntil": null})",
        R"({"modeBeforeAlways": "on"})", R"({"wakeAt": 0})", R"({"modeBeforeAlways": "busy"})"}) {
    EXPECT_EQ(decoded(text), Config{}) << text;
  }
}

TEST(ConfigWriting, EveryFieldComesBackAsItWasAndTouchesNoOther) {
  const auto all = nlohmann::json::parse(R"({
    "mode": "on", "preset": "speed", "lowPowerWhileClosed": false, "sleepWhenDone": false, "heatGuard": false,
    "countClaudeApp": false, "countRequests": false, "notifyDone": false, "pauseSimulators": false,
    "pauseBackgroundAudio": false, "liveLidIcon": false, "pauseTimeMachine": false, "hotkey": false,
    "onlyOnPower": true, "notchIsland": true, "showInDock": true, "doneChime": true, "lockOnClose": true,
    "screenOffNoLock": true, "shutDownSimulators": true, "slowBuildsWhileClosed": true, "quietMinutes": 17,
    "batteryFloor": 33, "watchedApps": [{"id": "/Applications/A.app", "name": "A"}, {"id": "b", "name": "b"}],
    "appRules": {"com.a": "leave", "com.b": "pause"}, "trackOnly": ["codex"], "menuBarText": "timeLeft",
    "customAgents": [{"name": "M", "executables": ["m", "n"], "idleWatts": 0.25}, {"name": "O", "executables": []}],
    "appearance": "dark", "chimeSound": "Ping \"quoted\"", "ntfyTopic": "topic", "alwaysUntil": 1800000000.5,
    "modeBeforeAlways": "auto", "checkInMinutes": 30, "wakeAt": 1800000001.0, "wakeForMinutes": 45})");
  EXPECT_EQ(all.size(), 36u);
  for (const auto& [key, value] : all.items()) {
    auto expected = Config{}.toJson();
    EXPECT_NE(std::exchange(expected[key], value), value) << key;
    EXPECT_EQ(decoded(nlohmann::json{{key, value}}.dump().c_str()).toJson(), expected);
  }
  const Config config = decoded(all.dump().c_str());
  EXPECT_EQ(config.toJson(), all);
  EXPECT_EQ(Config::decode(config.encoded()), config);
}

TEST(ConfigWriting, OnlyAbsentOptionsAreLeftOutAndTextSurvivesAnyBytes) {
  Config config;
  const auto document = config.toJson();
  EXPECT_EQ(document.size(), 33u);
  EXPECT_EQ(document["mode"], "auto");
  EXPECT_EQ(document["preset"], "balanced");
  for (const char* key : {"alwaysUntil", "modeBeforeAlways", "wakeAt"}) EXPECT_FALSE(document.contains(key)) << key;
  config.chimeSound = "bad \xff byte";
  EXPECT_EQ(Config::decode(config.encoded())->chimeSound, "bad \xEF\xBF\xBD byte");
}

}  // namespace
}  // namespace tovi
