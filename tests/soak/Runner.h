// Runs worlds, one seed after the other, and tells how it went.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "soak/World.h"

namespace tovi::soak {

using Clock = std::chrono::steady_clock;

constexpr double kDaysOfASeed = 10;

struct Life {
  double days = 0;  // of virtual time
  Counts counts;
  std::optional<std::string> broken;  // the name of the invariant
  std::string report;                 // of what broke: seed, tick and the last operations
};

// Lives one seed's world, for so many days or until the deadline. `tick`, if given, always shows how far it is.
Life live(std::uint64_t seed, double days, Clock::time_point deadline, volatile std::int64_t* tick = nullptr);

}  // namespace tovi::soak
