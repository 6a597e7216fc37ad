#include "safety/Heartbeat.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class HeartbeatTest : public testing::Test {
 protected:
  MemoryLaptop laptop_;
  StateFiles state_{laptop_.machine()};

  void beat() { Heartbeat::beat(laptop_.machine(), state_); }
  bool alive() { return Heartbeat::appIsAlive(laptop_.machine(), state_); }
  void put(std::string_view content) { laptop_.files().put(state_.path("alive"), content); }
};

TEST_F(HeartbeatTest, AnIdentifiedProcessMayNapForFifteenMinutes) {
  EXPECT_FALSE(alive()) << "never beat";
  beat();
  laptop_.advance(899.5);
  EXPECT_TRUE(alive());
  laptop_.advance(0.5);
  EXPECT_FALSE(alive());
}

TEST_F(HeartbeatTest, AFileThatCantBeWrittenToIsReplaced) {
  beat();
  laptop_.files().setMode(state_.path("alive"), 0400);
  laptop_.advance(1000);
  beat();
  EXPECT_TRUE(alive());
}

TEST_F(HeartbeatTest, OnAFullDiskItsDateGoesAlong) {
  beat();
  laptop_.restart(4242);
  laptop_.stepClock(-5000);
  laptop_.files().setFull(true);
  beat();
  EXPECT_EQ(laptop_.files().status(state_.path("alive"))->modified, laptop_.now());
}

TEST_F(HeartbeatTest, TheFileOutlivesItsProcess) {
  beat();
  const Pid dead = laptop_.processes().self();
  laptop_.restart();
  EXPECT_FALSE(alive());
  laptop_.processes().add({.pid = dead, .path = laptop_.surroundings().executable});
  EXPECT_FALSE(alive()) << "its number went to another";
}

TEST_F(HeartbeatTest, WithoutThreeNumbersOnlyAFreshFileCounts) {
  for (const char* content :
       {"1 2", "", "1 2 3 4", "1 two 3", "1 2 -3", "1 2 18446744073709551616", "1\t2\t3", "\xFF 1 2 3", "1.5 2 3"}) {
    put(content);
    laptop_.advance(89);
    EXPECT_TRUE(alive()) << content;
    laptop_.advance(2);
    EXPECT_FALSE(alive()) << content;
  }
}

TEST_F(HeartbeatTest, ThreeNumbersThatNameNobodyAreDeadHoweverFresh) {
  const auto now = static_cast<std::int64_t>(unixSeconds(laptop_.now()));
  const Pid self = laptop_.processes().self();
  const Microseconds start = *laptop_.processes().startTime(self);
  laptop_.processes().add({.pid = 600, .path = "/x", .start = 0});  // no start is no identity
  beat();
  EXPECT_EQ(state_.read("alive"), fmt::format("{} {} {}", now, self, start));
  put(fmt::format("  {}  {} {} x", now, self, start));
  EXPECT_TRUE(alive()) << "pieces that are no numbers don't count";
  for (const std::string& content :
       {fmt::format("{} 600 0", now), fmt::format("{} {} {}", now, self, start + 1),
        fmt::format("{} 99999 {}", now, start), fmt::format("{} {} {}", now, (std::uint64_t{1} << 32) + 500, start),
        fmt::format("{} {} {}", now - 900, self, start)}) {
    put(content);
    EXPECT_FALSE(alive()) << content;
  }
}

TEST_F(HeartbeatTest, AProcessThatCannotReadItsOwnStartIsNotTakenForAlive) {
  laptop_.processes().add({.pid = laptop_.processes().self(), .path = "/x", .hidesStart = true});
  beat();
  EXPECT_TRUE(state_.read("alive")->ends_with(" 0"));
  EXPECT_FALSE(alive());
}

TEST_F(HeartbeatTest, AFailedBeatLeavesTheLastOne) {
  beat();
  const auto last = state_.read("alive");
  laptop_.advance(60);
  laptop_.files().setFull(true);
  beat();
  EXPECT_EQ(state_.read("alive"), last);
}

}  // namespace
}  // namespace tovi
