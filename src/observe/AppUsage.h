// What one application, or one bare tool, uses right now.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct AppUsage {
  std::string id;    // bundle path ending in ".app", else the executable's name
  std::string name;  // as shown
  std::optional<std::string> bundleID;
  double watts = 0;       // summed over its processes
  double cores = 0;       // CPU seconds per second
  std::vector<Pid> pids;  // counted in this sample
  bool system = false;    // the first process seen has a system path

  friend bool operator==(const AppUsage&, const AppUsage&) = default;

  static bool isSystemPath(std::string_view path);
};

// The bundle a path lies in: up to the first ".app/", with ".app"; empty outside any bundle.
std::string_view bundlePathOf(std::string_view path);

}  // namespace tovi
