// One process chosen to be slowed or paused while the lid is closed.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "core/Modes.h"
#include "platform/Types.h"

namespace tovi {

struct ClosedTarget {
  AppRule rule = AppRule::slow;  // slow or pause
  Microseconds start = 0;
  std::string path;                   // of the executable
  std::optional<std::string> bundle;  // the application it belongs to; absent for targets found by process

  friend bool operator==(const ClosedTarget&, const ClosedTarget&) = default;
};

using ClosedTargets = std::map<Pid, ClosedTarget>;

}  // namespace tovi
