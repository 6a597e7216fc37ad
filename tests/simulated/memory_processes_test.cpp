#include "platform/simulated/MemoryProcesses.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class ProcessesInMemory : public testing::Test {
 protected:
  MemoryLaptop laptop;
  MemoryProcesses& processes = laptop.processes();

  Pid add(const std::string& path, Pid parent = 1) {
    MemoryProcess process;
    process.path = path;
    process.parent = parent;
    process.watts = 2;
    process.cores = 0.5;
    return processes.add(process);
  }
  Microseconds start(Pid pid) { return processes.startTime(pid).value(); }
  double joules(Pid pid) { return static_cast<double>(processes.usage(pid).value().energyNanojoules) / 1e9; }
};

TEST_F(ProcessesInMemory, EnergyFollowsStateAndPriority) {
  const Pid pid = add("/bin/a");
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(joules(pid), 20);
  EXPECT_EQ(processes.usage(pid)->cpuNanoseconds, 5'000'000'000u);
  ASSERT_TRUE(processes.setBackgroundPriority(pid, start(pid)));
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(joules(pid), 25);
  ASSERT_TRUE(processes.pause(pid, start(pid)));
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(joules(pid), 25);
  ASSERT_TRUE(processes.resume(pid, start(pid)));
  ASSERT_TRUE(processes.setNormalPriority(pid, start(pid)));
  processes.setRates(pid, 1, 0);
  laptop.advance(10);
  EXPECT_DOUBLE_EQ(joules(pid), 35);
  laptop.passAsleep(Seconds{500});
  EXPECT_DOUBLE_EQ(joules(pid), 35);
  processes.setCounters(pid, {7, 9});
  EXPECT_EQ(processes.usage(pid)->energyNanojoules, 7u);
}

TEST_F(ProcessesInMemory, NothingIsDoneToAnotherProcess) {
  const Pid pid = add("/bin/a");
  const Microseconds old = start(pid);
  add("/bin/filler");
  MemoryProcess reused;
  reused.pid = pid;
  reused.path = "/bin/a";
  processes.add(reused);
  EXPECT_NE(start(pid), old) << "a reused pid has another start";
  EXPECT_FALSE(processes.pause(pid, old));

  MemoryProcess other;
  other.mine = false;
  other.path = "/usr/sbin/daemon";
  const Pid daemon = processes.add(other);
  EXPECT_FALSE(processes.path(daemon));
  EXPECT_FALSE(processes.usage(daemon));
  EXPECT_TRUE(processes.exists(daemon));
  EXPECT_TRUE(processes.parent(daemon));
  EXPECT_FALSE(processes.pause(daemon, start(daemon)));
  EXPECT_FALSE(processes.setBackgroundPriority(99999, 1));
  EXPECT_TRUE(processes.effects().empty());
  EXPECT_EQ(laptop.faults().operations(), 0) << "refusals aren't operations";
}

TEST_F(ProcessesInMemory, EveryEffectIsRecordedWithItsIdentity) {
  const Pid pid = add("/bin/a");
  processes.pause(pid, start(pid));
  processes.setBackgroundPriority(pid, start(pid));
  EXPECT_TRUE(processes.stopped(pid));
  EXPECT_TRUE(processes.background(pid));
  using Kind = ProcessEffect::Kind;
  EXPECT_EQ(processes.effects(),
            (std::vector<ProcessEffect>{{Kind::pause, pid, start(pid)}, {Kind::background, pid, start(pid)}}));
  EXPECT_EQ(laptop.faults().log().front(), "kill STOP " + std::to_string(pid));
}

TEST_F(ProcessesInMemory, TheTableKeepsUpWithExecExitAndNewParents) {
  const Pid shell = add("/bin/sh");
  const Pid child = add("/bin/sh", shell);
  const auto generation = [&](Pid pid) { return processes.table().find(pid)->generation; };
  const auto before = generation(child);
  EXPECT_EQ(processes.table().childrenOf(shell).size(), 1u);
  processes.exec(child, "/usr/bin/make", {"make", "all"});
  EXPECT_EQ(processes.table().find(child)->name(), "make");
  EXPECT_NE(generation(child), before);
  EXPECT_EQ(processes.arguments(child).size(), 2u);
  const auto afterExec = generation(child);
  processes.exit(shell);
  EXPECT_EQ(processes.parent(child), 1) << "an orphan is taken in by process 1";
  EXPECT_EQ(processes.table().find(shell), nullptr);
  EXPECT_EQ(generation(child), afterExec);
  processes.exit(child);
  MemoryProcess reused;
  reused.pid = child;
  reused.path = "/usr/bin/make";
  processes.add(reused);
  EXPECT_NE(generation(child), afterExec) << "the same pid and path, but another process";
}

TEST_F(ProcessesInMemory, StartTimesIgnoreASetClock) {
  const Pid before = add("/bin/a");
  laptop.stepClock(-7200);
  laptop.advance(10);
  const Pid after = add("/bin/b");
  EXPECT_EQ(start(after) - start(before), 10'000'000u);
  EXPECT_EQ(processes.now(), start(after));
}

TEST_F(ProcessesInMemory, WhatGoneProcessesUsedStaysUsed) {
  const Pid pid = add("/bin/a");
  laptop.advance(10);
  processes.exit(pid);
  EXPECT_DOUBLE_EQ(processes.totalJoules(), 20);
}

}  // namespace
}  // namespace tovi
