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
  EXPECT_EQ(Safety::load(state), (Safety{true, 15}));
  const auto before = laptop.faults().operations();
  engine().apply(engine().config, true);
  EXPECT_EQ(laptop.faults().operations(), before) << "an equal one is no change";
}

TEST_F(SettingsTest, ABrokenFileIsKeptAndToldAndReplaced) {
  config("{ half a file");
  start();
  // It waited for somebody to tell it to.
  EXPECT_EQ(engine().pendingNotes.at(0).first, "Settings file couldn't be read");
  EXPECT_EQ(engine().pendingNotes[0].second,
            "Tovi is using its defaults. Your file was kept as config.broken-1767600000.json.");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "{ half a file");
  EXPECT_EQ(onDisk(), Config{});
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
  EXPECT_EQ(state.read("config.json"), R"({"quietMinutes": 7})") << "it isn't written back";

  laptop.files().dropProcess();  // no events reach us any more, and a later look finds it all the same
  config(R"({"quietMinutes": 8})");
  laptop.advance(12);
  EXPECT_EQ(engine().config->quietMinutes, 8);
}

TEST_F(SettingsTest, SafetyIsLoosenedInsideOnly) {
  start();
  set([](Config& inside) { inside.batteryFloor = 30; });
  EXPECT_EQ(Safety::load(state), (Safety{true, 30}));

  config(R"({"heatGuard": false, "batteryFloor": 10, "quietMinutes": 9})");
  laptop.settle();
  EXPECT_TRUE(engine().config->heatGuard && engine().config->batteryFloor == 30);
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

  set([](Config& inside) {
    inside.batteryFloor = 5;
    inside.heatGuard = false;
  });
  EXPECT_EQ(Safety::load(state), (Safety{false, 5}));
  EXPECT_EQ(noted.size(), 2u);

  state.remove(state.path("safety.json"));
  config(state.read("config.json").value_or("") + "\n");
  laptop.settle();
  EXPECT_EQ(Safety::load(state), (Safety{false, 5})) << "a lost record comes back with an edit that changes nothing";
}

TEST_F(SettingsTest, AnEditThatLeavesAlwaysForgetsItsEnd) {
  engine().stayAwake(30);
  ASSERT_TRUE(engine().config->alwaysUntil && engine().config->modeBeforeAlways);
  Config next = engine().config;
  next.mode = Mode::automatic;
  config(next.encoded());
  laptop.settle();
  EXPECT_TRUE(!engine().config->alwaysUntil && !engine().config->modeBeforeAlways);

  next.mode = Mode::on;
  next.alwaysUntil = unixSeconds(laptop.now()) - 1;
  config(next.encoded());
  laptop.settle();
  EXPECT_EQ(engine().config->mode, next.modeBeforeAlways) << "it was over when it came";
  EXPECT_EQ(onDisk(), engine().config.get());
}

TEST_F(SettingsTest, WithoutARecordWhatStandsThereIsAccepted) {
  config(R"({"batteryFloor": 3, "heatGuard": false})");
  start();
  EXPECT_EQ(Safety::load(state), (Safety{false, 3}));
  EXPECT_TRUE(engine().pendingNotes.empty());
}

}  // namespace
}  // namespace tovi
