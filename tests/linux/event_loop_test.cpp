#include "platform/linux/EventLoop.h"

#include <atomic>
#include <cmath>
#include <optional>
#include <thread>

#include "linux/Helpers.h"

namespace tovi {
namespace {

TEST(EventLoop, PostedCallsRunInOrderAndWhatIsLeftAtAStopWaitsForTheNextRun) {
  EventLoop loop;
  std::string order;
  loop.post([&] {
    order += 'a';
    loop.post([&] { order += 'c', loop.stop(); });
  });
  loop.post([&] { order += 'b', loop.stop(); });
  loop.run();
  EXPECT_EQ(order, "ab");
  loop.run();
  EXPECT_EQ(order, "abc");
  loop.stop();
  const Registration guard = loop.after(Seconds{5}, [&] {
    ADD_FAILURE() << "a stop before the run was lost";
    loop.stop();
  });
  loop.run();
}

TEST(EventLoop, ACallThatPostsItselfForeverDoesNotStarveTimers) {
  EventLoop loop;
  std::function<void()> again = [&] { loop.post(again); };
  loop.post(again);
  EXPECT_FALSE(runUntil(
      loop, [] { return false; }, 0.02));  // or it would never return
}

TEST(EventLoop, OddDelaysAreTakenAsNowOrNeverAndAOneShotFiresOnce) {
  EventLoop loop;
  int fired = 0;
  const auto count = [&] { ++fired; };
  const Registration negative = loop.after(Seconds{-3}, count), nan = loop.after(Seconds{std::nan("")}, count);
  const Registration never = loop.after(Seconds{INFINITY}, [] { ADD_FAILURE() << "infinity came"; });
  runFor(loop, 0.05);
  EXPECT_EQ(fired, 2);
}

TEST(EventLoop, ATimerThatWasKeptWaitingMakesUpNothing) {
  EventLoop loop;
  std::vector<double> at;
  const auto start = std::chrono::steady_clock::now();
  const Registration timer = loop.every(Seconds{0.05}, Seconds{0.001}, [&] {
    at.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (at.size() == 1) std::this_thread::sleep_for(std::chrono::milliseconds(230));  // four times missed
    if (at.size() == 4) loop.stop();
  });
  loop.run();
  // One call for those missed, then the old grid of whole intervals.
  EXPECT_GE(at[2], 0.3);
  EXPECT_GE(at[3], 0.35);
}

TEST(EventLoop, ARegistrationEndsItsTimerFromInsideAndOutside) {
  EventLoop loop;
  int inside = 0, outside = 0;
  auto kept = std::make_shared<int>(7);
  std::optional<Registration> self;
  self = loop.every(Seconds{0.005}, Seconds{0.001}, [&, kept] {
    ++inside;
    self.reset();
    EXPECT_EQ(*kept, 7);  // what the call holds lives until it returns
  });
  {
    const Registration dropped = loop.after(Seconds{0.01}, [&] { ++outside; });
  }
  runFor(loop, 0.05);
  EXPECT_EQ(inside, 1);
  EXPECT_EQ(outside, 0);
  EXPECT_EQ(kept.use_count(), 1);
}

TEST(EventLoop, RegistrationsMayOutliveTheLoop) {
  Registration timer, ticker;
  {
    EventLoop loop;
    timer = loop.after(Seconds{100}, [] {});
    ticker = loop.every(Seconds{100}, Seconds{1}, [] {});
    runFor(loop, 0.01);
  }
}

TEST(EventLoop, LeafWorkLeavesTheMainThreadAndItsResultComesBack) {
  EventLoop loop;
  const auto mainThread = std::this_thread::get_id();
  int results = 0;
  for (int i = 0; i < 8; ++i) {
    loop.offMain([&, mainThread]() -> MainQueue::Task {
      EXPECT_NE(std::this_thread::get_id(), mainThread);
      return [&, mainThread] {
        EXPECT_EQ(std::this_thread::get_id(), mainThread);
        ++results;
      };
    });
  }
  loop.offMain([]() -> MainQueue::Task { return nullptr; });
  loop.offMain([]() -> MainQueue::Task { throw 1; });
  EXPECT_TRUE(runUntil(loop, [&] { return results == 8; }));
}

TEST(EventLoop, TheEndWaitsForLeafWorkAndDropsItsResult) {
  std::atomic<bool> worked{false};
  {
    EventLoop loop;
    loop.offMain([&]() -> MainQueue::Task {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      worked = true;
      return [] { ADD_FAILURE() << "a result ran on a loop that is gone"; };
    });
  }
  EXPECT_TRUE(worked);
}

TEST(EventLoop, ARequestToTerminateEndsTheRunAndASecondOneDoesNotKill) {
  for (const int signal : {SIGTERM, SIGINT}) {
    EventLoop loop;
    bool workersSpared = true;
    // A thread that would take the signal must have it blocked.
    loop.offMain([&]() -> MainQueue::Task {
      sigset_t blocked;
      pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
      workersSpared = sigismember(&blocked, SIGTERM) == 1 && sigismember(&blocked, SIGINT) == 1;
      return nullptr;
    });
    loop.post([signal] { ::kill(::getpid(), signal); });
    const Registration guard = loop.after(Seconds{5}, [&] {
      ADD_FAILURE() << "signal " << signal << " did not end the run";
      loop.stop();
    });
    loop.run();
    ::kill(::getpid(), signal);  // while the application puts things back
    EXPECT_TRUE(workersSpared);
  }
  sigset_t now;
  pthread_sigmask(SIG_SETMASK, nullptr, &now);
  EXPECT_EQ(sigismember(&now, SIGTERM), 0) << "the signal stays blocked after the loop";
}

}  // namespace
}  // namespace tovi
