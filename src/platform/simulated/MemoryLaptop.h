// A whole laptop in memory, in virtual time and with faults on order: the machine on which everything above is
// tested.
//
//   MemoryLaptop laptop;
//   Engine engine(laptop.machine(), ...);
//   const Pid agent = laptop.processes().add({.parent = 1, .path = "/usr/bin/claude", .watts = 2, .cores = 0.5});
//   laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::closed; });
//   laptop.advance(Seconds{60});
//   EXPECT_TRUE(laptop.switches().sleepDisabled);
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Machine.h"
#include "platform/simulated/FakeTools.h"
#include "platform/simulated/LaptopAssertions.h"
#include "platform/simulated/LaptopCommands.h"
#include "platform/simulated/LaptopDisplays.h"
#include "platform/simulated/LaptopNotices.h"
#include "platform/simulated/LaptopPower.h"
#include "platform/simulated/LaptopStore.h"
#include "platform/simulated/LaptopWorkspace.h"
#include "platform/simulated/MemoryBroadcast.h"
#include "platform/simulated/MemoryClock.h"
#include "platform/simulated/MemoryDefaults.h"
#include "platform/simulated/MemoryFaults.h"
#include "platform/simulated/MemoryFiles.h"
#include "platform/simulated/MemoryHttp.h"
#include "platform/simulated/MemoryProcesses.h"
#include "platform/simulated/MemoryQueue.h"

namespace tovi {

class MemoryLaptop {
 public:
  struct Options {
    Date start = dateFromUnix(1'767'600'000);  // 2026-01-05 08:00:00 UTC
    Seconds sinceBoot{3600};
    Pid pid = 500;
    unsigned uid = 501;
    std::string userName = "anna";
    std::string home = "/home/anna";
    std::string executable = "/Applications/Tovi.app/Contents/MacOS/Tovi";
    std::vector<std::string> arguments = {"Tovi"};
  };

  MemoryLaptop();
  explicit MemoryLaptop(const Options& options);
  ~MemoryLaptop();
  MemoryLaptop(const MemoryLaptop&) = delete;
  MemoryLaptop& operator=(const MemoryLaptop&) = delete;

  Machine& machine() { return *machine_; }
  const Surroundings& surroundings() const { return surroundings_; }

  // Time.
  void advance(Seconds span) { queue_.advance(span); }
  void advance(double seconds) { queue_.advance(Seconds{seconds}); }
  void runUntil(Date date) { queue_.runUntil(date); }
  void settle() { queue_.settle(); }  // runs what is due now
  Date now() { return clock_.now(); }
  void stepClock(double seconds) { clock_.step(seconds); }  // the wall clock is set
  // Time passes while the machine sleeps: timers stand still and processes draw nothing.
  void passAsleep(Seconds span) { clock_.sleep(span.count()); }

  // The laptop. edit() raises what has changed on the next turn, as a changed laptop.json does.
  void edit(const std::function<void(LaptopReport&)>& change);
  const LaptopReport& report() const;
  const LaptopSwitches& switches() const;
  void setSwitches(const std::function<void(LaptopSwitches&)>& change);  // turned by somebody else; no operation

  // Parts.
  MemoryClock& clock() { return clock_; }
  MemoryQueue& queue() { return queue_; }
  MemoryFiles& files() { return files_; }
  MemoryProcesses& processes() { return processes_; }
  MemoryDefaults& defaults() { return defaults_; }
  MemoryBroadcast& broadcast() { return broadcast_; }
  MemoryHttp& http() { return http_; }
  MemoryFaults& faults() { return faults_; }

  // A program that isn't one of the laptop's own tools; any other command gives -1.
  void tool(const std::string& path, FakeTools::Tool tool) { tools_.set(path, std::move(tool)); }

  // What has been done, the oldest first.
  struct Command {
    int code = 0;
    std::string path;
    std::vector<std::string> arguments;

    std::string line() const;  // path and arguments joined by blanks

    friend bool operator==(const Command&, const Command&) = default;
  };
  const std::vector<Command>& commands() const;
  std::size_t commandCount(std::string_view line) const;  // how often this line ran, whatever its code
  void forgetCommands();
  const std::vector<LaptopNotice>& notices() const;
  std::vector<LaptopAssertions::Begun> activities() const { return assertions_.activities(); }

  // The process has died, by a Crash or otherwise, and a new one stands in its place: queue, timers, observers,
  // watches, locks, listeners and power requests of the old one are gone, the machine is as it was. Destroy what ran
  // in the old process first, while the dead can do no harm. The new process has another pid unless `pid` is given.
  void restart(std::optional<Pid> pid = std::nullopt);

  // The power went for a while: what wasn't synchronised is lost, all processes are gone, the machine has booted anew.
  void powerLoss(Seconds down = Seconds{60});

 private:
  class Store;

  Surroundings surroundings_;
  MemoryFaults faults_;
  MemoryClock clock_;
  MemoryQueue queue_;
  MemoryFiles files_;
  MemoryProcesses processes_;
  MemoryDefaults defaults_;
  MemoryBroadcast broadcast_;
  MemoryHttp http_;
  FakeTools tools_;
  std::unique_ptr<Store> store_;
  LaptopPower power_;
  LaptopDisplays displays_;
  LaptopAssertions assertions_;
  LaptopWorkspace workspace_;
  LaptopCommands commands_;
  LaptopNotices notices_;
  std::unique_ptr<Machine> machine_;

  void bornAs(Pid pid);
  void dropProcess();
};

}  // namespace tovi
