// Settings reaching a running engine: from the program, from an editor, and broken.

#include <gtest/gtest.h>

#include "engine/World.h"
#include "safety/Safety.h"

namespace tovi {
namespace {

struct SettingsTest : testing::Test, World {
  Config onDisk() { return Config::decode(state.read("config.json").value_or("")).value_or(Config{}); }
};

TEST_F(SettingsTest, AFirstStartWritesTheDefaults) {
  start();
  EXPECT_EQ(onDisk(), Config{});
  EXPECT_TRUE(state.exists("config.json"));
  EXPECT_EQ(Safety::load(state), (Safety{true, 15}));
}

TEST_F(SettingsTest, ABrokenFileIsKeptAndToldAndReplaced) {
  config("{ half a file");
  start();
  // The note waited for somebody to tell it to.
  ASSERT_EQ(engine().pendingNotes.size(), 1u);
  EXPECT_EQ(engine().pendingNotes[0].first, "Settings file couldn't be read");
  EXPECT_EQ(engine().pendingNotes[0].second,
            "Tovi is using its defaults. Your file was kept as config.broken-1767600000.json.");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "{ half a file");
  EXPECT_EQ(onDisk(), Config{});
}

TEST_F(SettingsTest, AnEditIsTakenUpAtOnceAndNeverWrittenBack) {
  start();
  config(R"({"quietMinutes": 9})");
  laptop.settle();
  EXPECT_EQ(engine().config->quietMinutes, 9);
  EXPECT_EQ(state.read("config.json"), R"({"quietMinutes": 9})");
}

TEST_F(SettingsTest, AHalfWrittenFileChangesNothingAndTheWholeOneCounts) {
  start();
  config(R"({"quietMinutes": )");
  laptop.advance(30);
  EXPECT_EQ(engine().config->quietMinutes, 5);
  EXPECT_EQ(state.read("config.json"), R"({"quietMinutes": )");
  config(R"({"quietMinutes": 7})");
  laptop.settle();
  EXPECT_EQ(engine().config->quietMinutes, 7);
}

TEST_F(SettingsTest, AMissedEventIsCaughtWithinFiveTicks) {
  start();
  laptop.advance(20);
  laptop.files().dropProcess();  // no events reach us any more
  laptop.advance(1);
  config(R"({"quietMinutes": 8})");
  laptop.advance(12);
  EXPECT_EQ(engine().config->quietMinutes, 8);
}

TEST_F(SettingsTest, AnEqualConfigIsNoChange) {
  start();
  int heard = 0;
  const Registration watch = engine().config.observe([&] { ++heard; });
  const auto before = laptop.faults().operations();
  engine().apply(engine().config, true);
  EXPECT_EQ(heard, 0);
  EXPECT_EQ(laptop.faults().operations(), before);
}

TEST_F(SettingsTest, LeavingAlwaysClearsWhatBelongedToIt) {
  start();
  engine().stayAwake(60);
  Config next = engine().config;
  next.mode = Mode::automatic;
  engine().apply(next, true);
  EXPECT_EQ(engine().config->alwaysUntil, std::nullopt);
  EXPECT_EQ(engine().config->modeBeforeAlways, std::nullopt);
  EXPECT_EQ(onDisk(), engine().config.get());
}

TEST_F(SettingsTest, SafetyIsLoosenedInsideOnly) {
  start();
  Config inside = engine().config;
  inside.batteryFloor = 30;
  engine().apply(inside, true);
  EXPECT_EQ(Safety::load(state), (Safety{true, 30}));

  config(R"({"heatGuard": false, "batteryFloor": 10, "quietMinutes": 9})");
  laptop.settle();
  EXPECT_TRUE(engine().config->heatGuard);
  EXPECT_EQ(engine().config->batteryFloor, 30);
  EXPECT_EQ(engine().config->quietMinutes, 9);
  EXPECT_EQ(onDisk(), engine().config.get());
  ASSERT_EQ(noted.size(), 1u);
  EXPECT_EQ(noted[0], std::pair(std::string("Settings file change ignored"),
                                std::string("Safety settings can only be loosened in Tovi itself: the heat guard stays "
                                            "on and the battery limit stays at 30%.")));

  config(R"({"batteryFloor": 40})");
  laptop.settle();
  EXPECT_EQ(Safety::load(state), (Safety{true, 40}));
  config(R"({"batteryFloor": 39})");
  laptop.settle();
  EXPECT_EQ(engine().config->batteryFloor, 40);

  inside = engine().config;
  inside.batteryFloor = 5;
  inside.heatGuard = false;
  engine().apply(inside, true);
  EXPECT_EQ(Safety::load(state), (Safety{false, 5}));
  EXPECT_EQ(noted.size(), 2u);
}

TEST_F(SettingsTest, WithoutARecordWhatStandsThereIsAccepted) {
  config(R"({"batteryFloor": 3, "heatGuard": false})");
  start();
  EXPECT_EQ(Safety::load(state), (Safety{false, 3}));
  EXPECT_TRUE(noted.empty());
}

TEST_F(SettingsTest, AWatchedToolCountsAtOnce) {
  start();
  program("/usr/bin/ffmpeg", 1, 3);
  laptop.advance(30);
  EXPECT_TRUE(engine().sessions->empty());
  engine().addWatched({"ffmpeg", "ffmpeg"});
  ASSERT_EQ(engine().sessions->size(), 1u);
  laptop.advance(10);
  EXPECT_EQ(engine().statusLine(), "ffmpeg is busy · sleeps when closed");
}

TEST_F(SettingsTest, LearnedFiguresOutsideReasonAreIgnored) {
  laptop.defaults().set("fullWh", 20.0);
  laptop.defaults().set("openDraw", 7.5);
  start();
  EXPECT_EQ(engine().fullWh, 70.0);
  EXPECT_EQ(engine().openDraw.get(), 7.5);
}

}  // namespace
}  // namespace tovi
