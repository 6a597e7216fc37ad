// The main queue in virtual time: nothing runs until a test moves the clock, and then everything that is due runs
// in the order in which it is due.
#pragma once

#include <deque>
#include <memory>
#include <queue>
#include <unordered_map>
#include <vector>

#include "platform/MainQueue.h"

namespace tovi {

class MemoryClock;

// Tasks due at the same time run in the order in which they were set. What a task throws comes out of the call
// that moved the clock.
class MemoryQueue final : public MainQueue {
 public:
  explicit MemoryQueue(MemoryClock& clock) : clock_(clock), timers_(std::make_shared<Timers>()) {}

  void post(Task task) override;
  Registration after(Seconds delay, Task task) override;
  Registration every(Seconds interval, Seconds tolerance, Task task) override;
  void offMain(std::function<Task()> work) override;  // the work on a later turn, its result on one after that
  void run() override;                                // moves the clock itself; returns also when nothing is left to do
  void stop() override { stopped_ = true; }

  // Moves the clock on by `span`, running what is due on the way.
  void advance(Seconds span);
  void runUntil(Date date);  // by the wall clock; also what is due at that very moment
  void settle() { advance(Seconds{0}); }

  // How much of its tolerance each repeating timer is late from now on: 0 none, 1 all of it.
  void setLateness(double share) { lateness_ = share; }
  // How long work off the main thread takes from now on.
  void setLeafDelay(Seconds delay) { leafDelay_ = delay; }

  void clear();  // the process is gone: nothing that was queued or set runs any more

 private:
  struct Timer {
    std::shared_ptr<Task> task;
    double interval = 0;  // 0: once
    double tolerance = 0;
    double nominal = 0;  // when it is due without lateness
  };
  struct Due {
    double at;
    std::uint64_t order;
    std::uint64_t id;
    bool operator>(const Due& other) const { return at != other.at ? at > other.at : order > other.order; }
  };
  using Timers = std::unordered_map<std::uint64_t, Timer>;

  MemoryClock& clock_;
  std::deque<Task> posted_;
  std::shared_ptr<Timers> timers_;
  std::priority_queue<Due, std::vector<Due>, std::greater<>> due_;
  std::uint64_t next_ = 0;
  double lateness_ = 0;
  Seconds leafDelay_{0};
  bool stopped_ = false;

  Registration add(double delay, double interval, double tolerance, Task task);
  void arm(std::uint64_t id, const Timer& timer);
  bool runPosted();          // false if stop() was called
  bool runTo(double awake);  // likewise
  void runTimer(const Due& due);
  void dropEnded();  // ended timers off the top
};

}  // namespace tovi
