// One line of /proc/PID/stat, taken apart.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Types.h"

namespace tovi {

struct ProcStat {
  Pid parent = 0;  // 0 for the first process and for what the kernel started itself
  char state = 0;  // 'R', 'S', 'T', 'Z' and so on
  bool kernelThread = false;
  std::int64_t threads = 0;
  // In clock ticks.
  std::uint64_t userTime = 0, systemTime = 0;
  std::uint64_t start = 0;  // since boot

  // It has ended and only waits for its parent to ask how. A leader that ended before its threads lives on in them.
  bool ended() const { return (state == 'Z' || state == 'X') && threads <= 1; }

  friend bool operator==(const ProcStat&, const ProcStat&) = default;
};

// The name in the text may hold anything, parentheses, blanks and line feeds included. Absent if the text isn't
// such a line or breaks off before the start time.
std::optional<ProcStat> parseProcStat(std::string_view text);

}  // namespace tovi
