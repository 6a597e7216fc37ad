// What time it is, on two scales: the wall clock, which people and files use and which can be set, and the
// time since boot, which never steps.
#pragma once

#include <optional>

#include "platform/Types.h"

namespace tovi {

class Clock {
 public:
  virtual ~Clock() = default;

  virtual Date now() = 0;

  // Seconds since boot, sleep included; never runs backwards. For spans that must survive a clock step.
  virtual Seconds sinceBoot() = 0;

  // When the system booted, by the wall clock as it stood when this process first asked, in whole seconds.
  // Absent if the system doesn't tell.
  virtual std::optional<Date> bootTime() = 0;
};

}  // namespace tovi
