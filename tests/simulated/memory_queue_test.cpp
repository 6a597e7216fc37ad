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

TEST_F(QueueInMemory, APostedTaskRunsBeforeALaterTimer) {
  const auto first = queue.after(Seconds{1}, [&] { queue.post(note("posted")); });
  const auto second = queue.after(Seconds{1.5}, note("timer"));
  laptop.advance(2);
  EXPECT_EQ(order, "posted@1 timer@2 ");
}

TEST_F(QueueInMemory, AnEndedRegistrationIsSilent) {
  Registration doomed = queue.every(Seconds{1}, Seconds{0}, note("doomed"));
  Registration self;
  self = queue.every(Seconds{1}, Seconds{0}, [&] {
    order += "self ";
    self.reset();
    doomed.reset();
  });
  laptop.advance(3);
  EXPECT_EQ(order, "doomed@1 self ");
}

TEST_F(QueueInMemory, LateTimersKeepTheirGrid) {
  laptop.queue().setLateness(1);
  const auto every = queue.every(Seconds{10}, Seconds{3}, note("t"));
  laptop.advance(40);
  EXPECT_EQ(order, "t@13 t@23 t@33 ");
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
  queue.offMain([] { return MainQueue::Task{}; });
  laptop.advance(5);
  EXPECT_EQ(order, "slow@3 ");
}

TEST_F(QueueInMemory, RunUntilGoesByTheWallClockEvenWhenItIsSet) {
  const auto set = queue.after(Seconds{10}, [&] { laptop.stepClock(3600); });
  const auto later = queue.after(Seconds{20}, note("later"));
  const Seconds before = laptop.machine().clock.sinceBoot();
  laptop.runUntil(start + 3615.0);
  EXPECT_EQ(order, "");
  EXPECT_NEAR((laptop.machine().clock.sinceBoot() - before).count(), 15, 1e-6);
  laptop.runUntil(start + 3620.0);
  EXPECT_EQ(order, "later@3620 ");
}

TEST_F(QueueInMemory, RunEndsWhenStoppedOrIdle) {
  const auto every = queue.every(Seconds{1}, Seconds{0}, note("t"));
  const auto stop = queue.after(Seconds{2.5}, [&] { queue.stop(); });
  queue.run();
  EXPECT_EQ(order, "t@1 t@2 ");
  MemoryLaptop idle;
  idle.machine().queue.run();
}

TEST_F(QueueInMemory, TasksThatPostEachOtherForEverAreFound) {
  std::function<void()> again = [&] { queue.post(again); };
  queue.post(again);
  EXPECT_THROW(laptop.settle(), std::logic_error);
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
