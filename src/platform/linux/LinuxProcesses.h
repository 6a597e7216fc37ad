// The processes of this computer, from /proc and by signals.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Processes.h"
#include "platform/linux/BackgroundPriority.h"
#include "platform/linux/BootAnchor.h"

namespace tovi {

class ProcessPicture;
struct ProcStat;

class LinuxProcesses : public Processes {
 public:
  // What a busy core of a laptop draws, in watts, where nothing measures it: between the 2 W of an efficiency
  // core and the 6 W or so of a performance core at a sustained clock.
  static constexpr double kWattsPerCore = 4.0;

  // Energy is CPU time times `wattsPerCore`; that figure should stay the same for the life of the machine, or a
  // process's energy counter makes a jump. `procRoot` is "/proc", `devices` is "/sys/devices".
  LinuxProcesses(
      std::string procRoot, BootAnchor& anchor, std::function<double()> wattsPerCore = [] { return kWattsPerCore; },
      std::string devices = "/sys/devices");
  ~LinuxProcesses() override;

  Pid self() override;
  Pid parentOfSelf() override;
  std::vector<Pid> allPids() override;
  const ProcessTable& table() override;

  // Paths are repaired UTF-8 as the arguments are: they go into JSON and are compared with what comes back.
  std::optional<Pid> parent(Pid pid) override;
  std::optional<Microseconds> startTime(Pid pid) override;
  std::optional<std::string> path(Pid pid) override;
  std::vector<std::string> arguments(Pid pid) override;
  std::optional<std::string> workingDirectory(Pid pid) override;
  std::optional<ProcessUsage> usage(Pid pid) override;
  bool exists(Pid pid) override;
  Microseconds now() override;

  bool pause(Pid pid, Microseconds start) override;
  bool resume(Pid pid, Microseconds start) override;
  bool setBackgroundPriority(Pid pid, Microseconds start) override;
  bool setNormalPriority(Pid pid, Microseconds start) override;
  void restoreInheritedPriority(const std::unordered_set<Pid>& listed) override;

 private:
  std::optional<ProcStat> stat(Pid pid) const;
  std::optional<std::string> link(Pid pid, const char* name) const;
  bool signal(Pid pid, Microseconds start, int number);
  bool mayTouch(Pid pid);
  bool isOurs(Pid pid);  // as far as the kernel doesn't see to that

  std::string procRoot_;
  BootAnchor& anchor_;
  std::function<double()> wattsPerCore_;
  BackgroundPriority priority_;
  std::unique_ptr<ProcessPicture> picture_;  // made at the first table()
};

}  // namespace tovi
