// A process table in memory: processes that a test adds, each drawing power and processor time at its own rate as
// virtual time passes, and a record of everything that was done to them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Processes.h"

namespace tovi {

class MemoryClock;
class MemoryFaults;

struct MemoryProcess {
  Pid pid = 0;  // 0: the next free one
  Pid parent = 1;
  std::string path = {};  // of the executable; empty if it can't be read
  std::vector<std::string> arguments = {};
  std::string workingDirectory = {};       // empty if it can't be read
  std::optional<Microseconds> start = {};  // absent: now
  double watts = 0;                        // drawn while it runs at normal priority
  double cores = 0;                        // processor seconds per second, likewise
  bool mine = true;                        // another person's: no path, arguments, folder or usage; actions are refused
  bool hidesParent = false;                // reads that fail although the process is there
  bool hidesStart = false;
  bool hidesUsage = false;
  bool stopped = false;     // draws nothing
  bool background = false;  // draws a quarter
};

// One thing done to a process.
struct ProcessEffect {
  enum class Kind { pause, resume, background, normal };
  Kind kind = Kind::pause;
  Pid pid = 0;
  Microseconds start = 0;

  friend bool operator==(const ProcessEffect&, const ProcessEffect&) = default;
};

class MemoryProcesses final : public Processes {
 public:
  MemoryProcesses(MemoryClock& clock, MemoryFaults& faults) : clock_(clock), faults_(faults) {}

  Pid self() override { return self_; }
  Pid parentOfSelf() override;
  std::vector<Pid> allPids() override;
  const ProcessTable& table() override;
  std::optional<Pid> parent(Pid pid) override;
  std::optional<Microseconds> startTime(Pid pid) override;
  std::optional<std::string> path(Pid pid) override;
  std::vector<std::string> arguments(Pid pid) override;
  std::optional<std::string> workingDirectory(Pid pid) override;
  std::optional<ProcessUsage> usage(Pid pid) override;
  bool exists(Pid pid) override { return rows_.contains(pid); }
  Microseconds now() override;
  bool pause(Pid pid, Microseconds start) override;
  bool resume(Pid pid, Microseconds start) override;
  bool setBackgroundPriority(Pid pid, Microseconds start) override;
  bool setNormalPriority(Pid pid, Microseconds start) override;
  void restoreInheritedPriority(const std::unordered_set<Pid>& listed) override;

  // What the world does. A process inherits its parent's priority. A pid that is taken is replaced by the new process,
  // which is how one is reused; no two processes of one pid get the same start time unless it was given.
  Pid add(MemoryProcess process);
  void exit(Pid pid);  // its children become process 1's
  void exec(Pid pid, const std::string& path, std::vector<std::string> arguments = {});
  void setParent(Pid pid, Pid parent);
  void setRates(Pid pid, double watts, double cores);
  void setCounters(Pid pid, const ProcessUsage& usage);  // from where they go on at the process's rates
  void setSelf(Pid pid) { self_ = pid; }
  void clear();  // the machine went down

  const MemoryProcess* find(Pid pid) const;  // null if there is none
  bool stopped(Pid pid) const;
  bool background(Pid pid) const;
  const std::vector<ProcessEffect>& effects() const { return effects_; }  // those that took effect, the oldest first
  void forgetEffects() { effects_.clear(); }

  // Joules that all processes have used so far, those that have gone included.
  double totalJoules();

 private:
  struct Row {
    MemoryProcess facts;
    double joules = 0, cpuSeconds = 0;  // up to `since`
    double since = 0;                   // on the clock's scale of being awake
    std::uint64_t generation = 0;
  };

  MemoryClock& clock_;
  MemoryFaults& faults_;
  Pid self_ = 0;
  Pid nextPid_ = 1000;
  std::unordered_map<Pid, Row> rows_;
  std::unordered_map<Pid, Microseconds> lastStart_;
  std::uint64_t lastGeneration_ = 0;
  double goneJoules_ = 0;
  std::vector<ProcessEffect> effects_;
  ProcessTable table_;
  bool tableStale_ = true;

  void accrue(Row& row) const;
  Row* mine(Pid pid);
  bool act(std::string_view verb, ProcessEffect::Kind kind, Pid pid, Microseconds start, bool MemoryProcess::*field,
           bool value);
};

}  // namespace tovi
