// Processes: what they are, what they use, and the four things that can be done to one (pause, resume,
// background priority, normal priority). A pid names a process only together with its start time.
#pragma once

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/ProcessTable.h"
#include "platform/Types.h"

namespace tovi {

struct ProcessUsage {
  std::uint64_t energyNanojoules = 0;  // grows over the process's life
  std::uint64_t cpuNanoseconds = 0;    // user and system time
};

class Processes {
 public:
  virtual ~Processes() = default;

  virtual Pid self() = 0;
  virtual Pid parentOfSelf() = 0;

  // All identifiers of 1 and above, in no promised order; empty if they can't be had.
  virtual std::vector<Pid> allPids() = 0;

  // A picture brought up to date at a fraction of the cost of reading every process: new and young processes
  // are read afresh, old ones by turns. For observing only; valid until the next call.
  virtual const ProcessTable& table() = 0;

  // The following read the process afresh. Absent or empty: it has gone, or may not be read.
  virtual std::optional<Pid> parent(Pid pid) = 0;
  // Equal in every process that asks, and after the clock was set.
  virtual std::optional<Microseconds> startTime(Pid pid) = 0;
  virtual std::optional<std::string> path(Pid pid) = 0;
  virtual std::vector<std::string> arguments(Pid pid) = 0;  // invalid UTF-8 repaired
  virtual std::optional<std::string> workingDirectory(Pid pid) = 0;
  virtual std::optional<ProcessUsage> usage(Pid pid) = 0;

  // Whether a process has this identifier, another person's included.
  virtual bool exists(Pid pid) = 0;

  // Now, on the scale of startTime(), so that ages come out right after the clock was set.
  virtual Microseconds now() = 0;

  // Each acts only if `pid` still is the process that started at `start`; false if it isn't, or if the system
  // refused. The caller keeps pids below 2 and its own out of here.
  virtual bool pause(Pid pid, Microseconds start) = 0;
  virtual bool resume(Pid pid, Microseconds start) = 0;
  virtual bool setBackgroundPriority(Pid pid, Microseconds start) = 0;
  virtual bool setNormalPriority(Pid pid, Microseconds start) = 0;

  // A process started by one at background priority may have inherited it, and then stands in nobody's list. Gives
  // normal priority back to all such but the `listed`.
  virtual void restoreInheritedPriority(const std::unordered_set<Pid>& listed) = 0;
};

}  // namespace tovi
