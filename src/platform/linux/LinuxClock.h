// The kernel's two clocks: the wall clock, and the one that counts from boot and never steps.
#pragma once

#include "platform/Clock.h"

namespace tovi {

class LinuxClock : public Clock {
 public:
  Date now() override;
  Seconds sinceBoot() override;
  std::optional<Date> bootTime() override;

 private:
  std::optional<Date> bootTime_;
};

}  // namespace tovi
