// The one thread on which all resident code runs: a queue of calls and timers, and the way for slow leaf
// work to leave it and bring its result back.
#pragma once

#include <functional>

#include "platform/Types.h"

namespace tovi {

class MainQueue {
 public:
  using Task = std::function<void()>;

  virtual ~MainQueue() = default;

  // Runs `task` on the next turn of the queue. Called on the main thread only.
  virtual void post(Task task) = 0;

  // Runs `task` once, `delay` from now, unless the registration ends before.
  virtual Registration after(Seconds delay, Task task) = 0;

  // Runs `task` every `interval`, each time up to `tolerance` late so that the system can share wake-ups.
  virtual Registration every(Seconds interval, Seconds tolerance, Task task) = 0;

  // Runs `work` off the main thread, then on it the task that `work` returned (none if empty). `work` must
  // touch nothing that the main thread uses.
  virtual void offMain(std::function<Task()> work) = 0;

  // Runs until stop(), or until a request to terminate reaches the process.
  virtual void run() = 0;
  virtual void stop() = 0;
};

}  // namespace tovi
