#include "platform/simulated/MemoryProcesses.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class ProcessesInMemory : public testing::Test {
 protected:
  MemoryLaptop laptop;
  MemoryProcesses& processes = laptop.processes();

  Pid add(const std::string& path, Pid parent = 1) { return processes.add({.parent = parent, .path = path}); }
  Microseconds start(Pid pid) { return processes.startTime(pid).value(); }
};

TEST_F(ProcessesInMemory, NothingIsDoneToAnotherProcess) {
  const Pid pid = add("/bin/a");
  const Microseconds old = start(pid);
  processes.add({.pid = pid, .path = "/bin/a"});
  EXPECT_NE(start(pid), old) << "a reused pid has another start";
  EXPECT_FALSE(processes.pause(pid, old));

  const Pid daemon = processes.add({.path = "/usr/sbin/daemon", .mine = false});
  EXPECT_FALSE(processes.path(daemon));
  EXPECT_TRUE(processes.exists(daemon));
  EXPECT_FALSE(processes.pause(daemon, start(daemon)));
  EXPECT_FALSE(processes.setBackgroundPriority(99999, 1));
  EXPECT_TRUE(processes.effects().empty());
  EXPECT_EQ(laptop.faults().operations(), 0) << "refusals aren't operations";
}

TEST_F(ProcessesInMemory, StartTimesIgnoreASetClock) {
  const Pid before = add("/bin/a");
  laptop.stepClock(-7200);
  laptop.advance(10);
  const Pid after = add("/bin/b");
  EXPECT_EQ(start(after) - start(before), 10'000'000u);
  EXPECT_EQ(processes.now(), start(after));
}

}  // namespace
}  // namespace tovi
