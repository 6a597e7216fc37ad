#include <gtest/gtest.h>

#include <functional>

#include "core/Config.h"
#include "core/ConfigWatcher.h"
#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

TEST(ConfigFile, OnlyWhatIsNoObjectIsSetAside) {
  MemoryLaptop laptop;
  const StateFiles state{laptop.machine()};
  const std::string path = Config::path(state);
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), std::nullopt);
  laptop.files().put(path, R"({"mode": 3})");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), std::nullopt);
  laptop.files().put(path, "[1]");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600000.json");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "[1]");
  EXPECT_EQ(state.read("config.json"), "[1]");  // copied, not moved
  laptop.files().put(path, "again in the same second");
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600000.json");
  EXPECT_EQ(state.read("config.broken-1767600000.json"), "[1]") << "the first copy";
  laptop.advance(1);
  laptop.files().setFull(true);
  EXPECT_EQ(Config::setAsideIfBroken(state, laptop.clock()), "config.broken-1767600001.json") << "named all the same";
}

TEST(ConfigWatcher, SeesEveryWayOfSavingOnceAndAnUntouchedFileNever) {
  MemoryLaptop laptop;
  const StateFiles state{laptop.machine()};
  MemoryFiles& files = laptop.files();
  const std::string path = Config::path(state);
  files.put(path, "{}");
  int changes = 0;
  ConfigWatcher watcher(files, files, state, [&] { ++changes; });
  watcher.start();
  const std::pair<std::function<void()>, int> steps[] = {
      {[] {}, 0},
      {[&] { files.put(path, "{...}"); }, 1},                                                      // in place
      {[&] { files.put(state.path("new"), "{...}"), files.rename(state.path("new"), path); }, 2},  // same size and time
      {[&] { files.put(state.path("alive"), "1 2 3"); }, 2},                                       // somebody else's
      {[&] { files.erase(path); }, 3},
  };
  for (const auto& [happens, expected] : steps) {
    happens();
    laptop.settle();
    EXPECT_EQ(changes, expected);
  }
}

}  // namespace
}  // namespace tovi
