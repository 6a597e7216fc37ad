#include "core/Config.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tovi {
namespace {

Config decoded(const char* text) {
  const auto config = Config::decode(text);
  EXPECT_TRUE(config) << text;
  return config.value_or(Config{});
}

TEST(ConfigReading, OnlyATopLevelThatIsNoObjectFails) {
  for (const char* text : {"", "[]", "[{}]", "null", "3", "\"x\"", "{", "{\"mode\": }", "{} trailing", "\xff\xfe"}) {
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
      {R"({"quietMinutes": 9999})", &Config::quietMinutes, 240},
      {R"({"quietMinutes": 99999999999})", &Config::quietMinutes, 240},
      {R"({"quietMinutes": 7.0})", &Config::quietMinutes, 7},
      {R"({"quietMinutes": 7.5})", &Config::quietMinutes, 5},
      {R"({"quietMinutes": 1e300})", &Config::quietMinutes, 5},
      {R"({"quietMinutes": "7"})", &Config::quietMinutes, 5},
      {R"({"quietMinutes": true})", &Config::quietMinutes, 5},
      {R"({"batteryFloor": -5})", &Config::batteryFloor, 0},
      {R"({"batteryFloor": 95})", &Config::batteryFloor, 80},
      {R"({"wakeForMinutes": 2})", &Config::wakeForMinutes, 5},
      {R"({"wakeForMinutes": 5000})", &Config::wakeForMinutes, 1440},
      {R"({"checkInMinutes": 20})", &Config::checkInMinutes, 0},
      {R"({"checkInMinutes": 60})", &Config::checkInMinutes, 60},
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
  const Config config = decoded(R"({"alwaysUntil": 1.5, "modeBeforeAlways": "off", "wakeAt": 2})");
  EXPECT_EQ(config.alwaysUntil, 1.5);
  EXPECT_EQ(config.modeBeforeAlways, Mode::off);
  EXPECT_EQ(config.wakeAt, 2.0);
}

TEST(ConfigReading, ATopicIsCutByCharactersAndNotInsideOne) {
  EXPECT_EQ(decoded(("{\"ntfyTopic\": \"" + std::string(70, 'x') + "\"}").c_str()).ntfyTopic, std::string(64, 'x'));
  std::string umlauts;
  for (int count = 0; count < 70; ++count) umlauts += "ü";
  EXPECT_EQ(decoded(("{\"ntfyTopic\": \"" + umlauts + "\"}").c_str()).ntfyTopic, umlauts.substr(0, 128));
}

TEST(ConfigWriting, EveryFieldComesBackAsItWas) {
  Config config;
  config.mode = Mode::on;
  config.preset = Preset::speed;
  config.lowPowerWhileClosed = config.sleepWhenDone = config.heatGuard = config.countClaudeApp = false;
  config.countRequests = config.notifyDone = config.pauseSimulators = config.pauseBackgroundAudio = false;
  config.liveLidIcon = config.pauseTimeMachine = config.hotkey = false;
  config.onlyOnPower = config.notchIsland = config.showInDock = config.doneChime = config.lockOnClose = true;
  config.screenOffNoLock = config.shutDownSimulators = config.slowBuildsWhileClosed = true;
  config.quietMinutes = 17;
  config.batteryFloor = 33;
  config.watchedApps = {{"/Applications/A.app", "A"}, {"ffmpeg", "ffmpeg"}};
  config.appRules = {{"com.a", AppRule::leave}, {"com.b", AppRule::pause}};
  config.customAgents = {{"Mine", {"mine", "mine2"}, 0.25}, {"Other", {}, std::nullopt}};
  config.menuBarText = MenuBarText::timeLeft;
  config.appearance = AppearanceChoice::dark;
  config.chimeSound = "Ping \"quoted\"";
  config.ntfyTopic = "topic";
  config.trackOnly = {"codex"};
  config.alwaysUntil = 1800000000.5;
  config.modeBeforeAlways = Mode::automatic;
  config.checkInMinutes = 30;
  config.wakeAt = 1800000001;
  config.wakeForMinutes = 45;
  EXPECT_EQ(Config::decode(config.encoded()), config);
  EXPECT_EQ(config.toJson().size(), 36u);
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
