#include "platform/linux/LinuxClock.h"

#include <cmath>
#include <ctime>

namespace tovi {
namespace {

std::optional<Seconds> read(clockid_t clock) {
  timespec now{};
  if (clock_gettime(clock, &now) != 0) return {};
  return Seconds{static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9};
}

}  // namespace

Date LinuxClock::now() { return Date{read(CLOCK_REALTIME).value_or(Seconds{0})}; }

Seconds LinuxClock::sinceBoot() { return read(CLOCK_BOOTTIME).value_or(Seconds{0}); }

std::optional<Date> LinuxClock::bootTime() {
  if (!bootTime_) {
    const auto wall = read(CLOCK_REALTIME);
    const auto boot = read(CLOCK_BOOTTIME);
    if (wall && boot) bootTime_ = dateFromUnix(std::floor((*wall - *boot).count()));
  }
  return bootTime_;
}

}  // namespace tovi
