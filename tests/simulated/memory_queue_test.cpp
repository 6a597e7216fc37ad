#include "platform/simulated/MemoryQueue.h"

#include <gtest/gtest.h>

#include <cmath>

#include <string>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class QueueInMemory : public testing::Test {
 protected:
  MemoryLaptop laptop;
  MainQueue& queue = laptop.machine().queue;
  const Date start = laptop.now();
  std::string order;

  MainQueue::Task note(const std::string& name) {
    return
        [this, name] { order += name + "@" + std::to_string(std::lround(secondsBetween(start, laptop.now()))) + " "; };
  }
};

TEST_F(QueueInMemory, RunsInTheOrderOfTime) {
  const auto late = queue.after(Seconds{5}, note("late"));
  const auto every = queue.every(Seconds{2}, Seconds{1}, note("every"));
  const auto same = queue.after(Seconds{4}, note("same"));
  queue.post(note("posted"));
  EXPECT_EQ(order, "");
  laptop.advance(6);
  // "same" was set before the timer's second turn was.
  EXPECT_EQ(order, "posted@0 every@2 same@4 every@4 late@5 every@6 ");
  EXPECT_EQ(secondsBetween(start, laptop.now()), 6);
}

TEST_F(QueueInMemory, LeafWorkComesBackOnALaterTurn) {
  queue.offMain([&]() -> MainQueue::Task {
    order += "work ";
    return note("result");
  });
  queue.post(note("other"));
  EXPECT_EQ(order, "");
  laptop.settle();
  EXPECT_EQ(order, "work other@0 result@0 ");
  order.clear();
  laptop.queue().setLeafDelay(Seconds{3});
  queue.offMain([&] { return note("slow"); });
  laptop.advance(5);
  EXPECT_EQ(order, "slow@3 ");
}

TEST_F(QueueInMemory, TimersStandStillWhileTheMachineSleeps) {
  const auto timer = queue.after(Seconds{10}, note("t"));
  laptop.advance(5);
  laptop.passAsleep(Seconds{1000});
  laptop.advance(4);
  EXPECT_EQ(order, "");
  laptop.advance(1);
  EXPECT_EQ(order, "t@1010 ");
}

}  // namespace
}  // namespace tovi
