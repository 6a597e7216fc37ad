#include "platform/simulated/MemoryClock.h"

#include <cmath>

namespace tovi {

MemoryClock::MemoryClock(Date start, Seconds sinceBoot)
    : boot_(start + -sinceBoot.count()), bootOffset_(sinceBoot.count()) {}

std::optional<Date> MemoryClock::bootTime() {
  if (!bootTime_) bootTime_ = dateFromUnix(std::floor(unixSeconds(now()) - sinceBoot().count()));
  return bootTime_;
}

void MemoryClock::reboot(double downSeconds) {
  boot_ = now() + downSeconds;
  step_ = 0;
  bootOffset_ = -(awake_ + slept_);
  bootTime_.reset();
}

}  // namespace tovi
