// Keeps out commands that come again, too late or too often, whoever holds the key. It remembers in memory only: after
// a restart the cursor and the age limit keep a replay out.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct RemoteGuard {
  static constexpr double kMaxAge = 300;        // seconds, of most commands
  static constexpr double kWakeMaxAge = 10800;  // "wake" may wait for the next check-in of a sleeping machine

  std::vector<std::pair<std::string, Date>> seen;  // ids handled within the replay window
  std::vector<Date> recent;                        // when commands were accepted within the last minute

  static double maxAge(std::string_view command) { return command == "wake" ? kWakeMaxAge : kMaxAge; }

  // `t`: the sender's clock in seconds since 1970; absent if it gave none. Absent: accepted, and remembered.
  // Otherwise the refusal, in words for the person.
  std::optional<std::string_view> check(std::optional<double> t, std::string_view id, double maxAge, Date now);
};

}  // namespace tovi
