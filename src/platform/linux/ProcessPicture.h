// The table of all processes, kept up to date at a fraction of the cost of reading each one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/ProcessTable.h"
#include "platform/linux/BootAnchor.h"
#include "platform/linux/PidFolder.h"

namespace tovi {

// Pids are handed out in a cycle. While fewer processes and threads were made since the last picture than half
// the cycle, a pid seen then and now is the same process and its facts stand. What can still change is its program
// (exec) and its parent, so it is read again: every time while it is young, when its parent has gone, and else
// its program at every 16th picture and the rest at every 64th.
class ProcessPicture {
 public:
  static constexpr Microseconds kYoung = 60'000'000;
  static constexpr unsigned kProgramTurns = 16;
  static constexpr unsigned kTurns = 64;

  ProcessPicture(const std::string& procRoot, BootAnchor& anchor);

  const ProcessTable& bringUpToDate();

 private:
  bool stillInCycle();
  bool read(ProcessEntry& entry, bool& kernelThread);  // false: it has gone
  bool readProgram(ProcessEntry& entry);               // whether it is another one

  BootAnchor& anchor_;
  PidFolder root_;
  ProcessTable table_;
  std::vector<bool> kernelThreads_;  // one for each entry of the table, in its order
  std::optional<std::uint64_t> forks_;
  std::uint64_t generation_ = 0;
  unsigned turn_ = 0;

  // Kept for their room.
  std::vector<Pid> pids_, gone_;
  std::vector<ProcessEntry> next_;
  std::vector<bool> nextKernelThreads_;
};

}  // namespace tovi
