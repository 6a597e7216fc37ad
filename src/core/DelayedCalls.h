// Calls planned for later that must not outlive the object they belong to: they go when it goes.
#pragma once

#include <functional>
#include <list>

#include "platform/MainQueue.h"

namespace tovi {

class DelayedCalls {
 public:
  explicit DelayedCalls(MainQueue& queue) : queue_(queue) {}

  void after(Seconds delay, std::function<void()> call) {
    const auto at = pending_.emplace(pending_.end());
    *at = queue_.after(delay, [this, at, call = std::move(call)] {
      // Out of the list first: the call may destroy the owner, and with it this list.
      const Registration own = std::move(*at);
      pending_.erase(at);
      const auto run = call;
      run();
    });
  }

 private:
  MainQueue& queue_;
  std::list<Registration> pending_;
};

}  // namespace tovi
