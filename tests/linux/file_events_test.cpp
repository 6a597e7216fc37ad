#include "platform/linux/LinuxFileEvents.h"

#include <optional>

#include "linux/Helpers.h"

namespace tovi {
namespace {

class RealFileEvents : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  EventLoop loop;
  LinuxFileEvents events{loop};
  int calls = 0;
  Registration watch() {
    return events.watch(folder.path(), "config.json", [this] { ++calls; });
  }
  // How many calls one step brings.
  int callsAfter(const std::function<void()>& step) {
    calls = 0;
    step();
    runUntil(
        loop, [this] { return calls > 0; }, 0.1);
    runFor(loop, 0.02);
    return calls;
  }
};

TEST_F(RealFileEvents, EveryKindOfChangeToTheFileIsToldAndNoneOfAnother) {
  EXPECT_FALSE(events.watch(folder / "missing", "a", [] {}));
  const std::string file = folder / "config.json";
  const Registration watching = watch();
  ASSERT_TRUE(watching);
  EXPECT_EQ(callsAfter([&] { put(file, "{"); }), 1) << "created and written, in one reading";
  EXPECT_EQ(callsAfter([&] {
              put(folder / "config.json.tmp12", "x");
              put(folder / "config.jso", "x");
              contents(file);
            }),
            0);
  EXPECT_EQ(callsAfter([&] { std::filesystem::resize_file(file, 0); }), 1);
  EXPECT_EQ(callsAfter([&] {
              put(folder / "new", "{\"a\": 1}");
              std::filesystem::rename(folder / "new", file);
            }),
            1)
      << "an editor that replaces the file";
  EXPECT_EQ(callsAfter([&] { put(file, "after a replacement"); }), 1);
  EXPECT_EQ(callsAfter([&] { std::filesystem::rename(file, folder / "away"); }), 1);
  std::filesystem::rename(folder / "away", file);
  EXPECT_EQ(callsAfter([&] { std::filesystem::remove(file); }), 1);
  put(folder / "kept elsewhere", "{}");
  EXPECT_EQ(callsAfter([&] { std::filesystem::create_symlink(folder / "kept elsewhere", file); }), 1);
  EXPECT_EQ(callsAfter([&] { put(folder / "kept elsewhere", "{\"a\": 1}"); }), 1);
}

TEST_F(RealFileEvents, TwoWatchesOfOneFolderAreIndependent) {
  int others = 0;
  Registration mine = watch();
  const Registration other = events.watch(folder.path(), "laptop.json", [&] { ++others; });
  mine.reset();
  EXPECT_EQ(callsAfter([&] { put(folder / "config.json", ""), put(folder / "laptop.json", ""); }), 0);
  EXPECT_EQ(others, 1);
}

TEST_F(RealFileEvents, AWatchMayEndInsideItsCall) {
  std::optional<Registration> self;
  int once = 0;
  self = events.watch(folder.path(), "config.json", [&] {
    ++once;
    self.reset();
  });
  put(folder / "config.json", "1");
  runFor(loop, 0.1);
  put(folder / "config.json", "2");
  runFor(loop, 0.1);
  EXPECT_EQ(once, 1);
}

}  // namespace
}  // namespace tovi
