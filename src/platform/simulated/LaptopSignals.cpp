#include "platform/simulated/LaptopSignals.h"

#include <map>
#include <vector>

#include "platform/MainQueue.h"

namespace tovi {

struct LaptopSignals::Observers {
  struct One {
    LaptopEvent event;
    std::function<void()> call;
  };
  std::uint64_t next = 0;
  std::map<std::uint64_t, One> all;
};

LaptopSignals::LaptopSignals(MainQueue& queue) : queue_(queue), observers_(std::make_shared<Observers>()) {}

Registration LaptopSignals::observe(LaptopEvent event, std::function<void()> call) {
  const std::uint64_t id = observers_->next++;
  observers_->all.emplace(id, Observers::One{event, std::move(call)});
  return Registration([id, observers = std::weak_ptr(observers_)] {
    if (const auto still = observers.lock()) still->all.erase(id);
  });
}

void LaptopSignals::raise(LaptopEvent event) {
  queue_.post([event, observers = std::weak_ptr(observers_)] {
    const auto still = observers.lock();
    if (!still) return;
    std::vector<std::uint64_t> ids;
    for (const auto& [id, one] : still->all) {
      if (one.event == event) ids.push_back(id);
    }
    // A call may end other registrations, and its own.
    for (const std::uint64_t id : ids) {
      const auto at = still->all.find(id);
      if (at == still->all.end()) continue;
      const auto call = at->second.call;
      call();
    }
  });
}

void LaptopSignals::drop() { observers_ = std::make_shared<Observers>(); }

}  // namespace tovi
