// config.json as a file: set aside when broken, watched while it is edited.

#include <gtest/gtest.h>

#include "core/Config.h"
#include "core/ConfigWatcher.h"
#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

struct ConfigFileTest : testing::Test {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  std::string path = Config::path(state);
};

TEST_F(ConfigFileTest, OnlyWhatIsNoObjectIsSetAside) {
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), std::nullopt);
  laptop.files().put(path, R"({"mode": 3})");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), std::nullopt);
  laptop.files().put(path, "[1]");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600000.json");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "[1]");
  EXPECT_EQ(state.read("config.json"), "[1]");  // copied, not moved
}

TEST_F(ConfigFileTest, ASecondBreakageInTheSameSecondKeepsTheFirstCopy) {
  laptop.files().put(path, "first");
  ASSERT_TRUE(Config::setAsideIfBroken(state, laptop.clock()));
  laptop.files().put(path, "second");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600000.json");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "first");
}

TEST_F(ConfigFileTest, TheNameIsGivenEvenIfTheCopyFailed) {
  laptop.files().put(path, "broken");
  laptop.files().setFull(true);
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600000.json");
}

TEST_F(ConfigFileTest, EveryWayOfSavingIsSeenOnceAndAnUntouchedFileNever) {
  laptop.files().put(path, "{}");
  int changes = 0;
  ConfigWatcher watcher(laptop.files(), laptop.files(), state, [&] { ++changes; });
  watcher.start();
  laptop.settle();
  EXPECT_EQ(changes, 0);

  laptop.files().put(path, R"({"hotkey": false})");  // rewritten in place
  laptop.settle();
  EXPECT_EQ(changes, 1);

  laptop.files().put(state.path("other"), R"({"hotkey": false})");  // replaced by rename, same size
  laptop.files().rename(state.path("other"), path);
  laptop.settle();
  EXPECT_EQ(changes, 2);

  laptop.files().put(state.path("alive"), "1 2 3");  // somebody else's file
  laptop.settle();
  EXPECT_EQ(changes, 2);

  laptop.files().erase(path);
  laptop.settle();
  EXPECT_EQ(changes, 3);
}

TEST_F(ConfigFileTest, AnotherInodeIsAnotherFileThoughSizeAndTimeAgree) {
  ConfigWatcher watcher(laptop.files(), laptop.files(), state, [] {});
  EXPECT_EQ(watcher.stamp(), std::nullopt);
  laptop.files().put(path, "{}");
  const auto before = watcher.stamp();
  laptop.files().put(state.path("other"), "{}");
  laptop.files().rename(state.path("other"), path);
  EXPECT_NE(watcher.stamp(), before);
}

}  // namespace
}  // namespace tovi
