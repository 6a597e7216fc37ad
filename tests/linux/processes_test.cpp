#include "platform/linux/LinuxProcesses.h"

#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "linux/Helpers.h"
#include "platform/linux/ProcStat.h"

namespace tovi {
namespace {

class RealProcesses : public ::testing::Test {
 protected:
  char stateOf(Pid pid) { return parseProcStat(contents("/proc/" + std::to_string(pid) + "/stat"))->state; }

  TemporaryFolder state;
  BootAnchor anchor{state.path()};
  LinuxProcesses processes{"/proc", anchor};
};

TEST_F(RealProcesses, PauseAndResumeReachTheRightProcessOnly) {
  const Child child;
  const Microseconds start = processes.startTime(child.pid()).value();
  EXPECT_FALSE(processes.pause(child.pid(), start + 1)) << "a process that started at another time was paused";
  EXPECT_NE(stateOf(child.pid()), 'T');
  EXPECT_TRUE(processes.pause(child.pid(), start));
  EXPECT_TRUE(eventually([&] { return stateOf(child.pid()) == 'T'; }));
  EXPECT_FALSE(processes.resume(child.pid(), start - 1));
  EXPECT_EQ(stateOf(child.pid()), 'T');
  EXPECT_TRUE(processes.resume(child.pid(), start));
  EXPECT_TRUE(eventually([&] { return stateOf(child.pid()) == 'S'; }));
}

// Until its parent asks, a process that has ended keeps its number and its line in /proc.
TEST_F(RealProcesses, OneThatHasEndedIsGoneBeforeItsParentAsks) {
  const Pid ended = ::fork();
  if (ended == 0) ::_exit(0);
  EXPECT_TRUE(eventually([&] { return stateOf(ended) == 'Z'; }));
  EXPECT_EQ(processes.startTime(ended), std::nullopt);
  EXPECT_EQ(processes.table().find(ended), nullptr);
  ::waitpid(ended, nullptr, 0);
}

TEST_F(RealProcesses, NothingReachesOneselfInitOrAProcessThatIsGone) {
  const Microseconds own = processes.startTime(processes.self()).value();
  EXPECT_FALSE(processes.pause(processes.self(), own));
  EXPECT_FALSE(processes.setBackgroundPriority(processes.self(), own));
  for (const Pid pid : {-1, 0, 1}) {
    EXPECT_EQ(processes.exists(pid), pid == 1) << pid;  // to the kernel 0 is "my group" and -1 "everybody"
    const Microseconds start = processes.startTime(pid).value_or(0);
    EXPECT_FALSE(processes.resume(pid, start)) << pid;
    EXPECT_FALSE(processes.setNormalPriority(pid, start)) << pid;
  }
  Child child;
  const Pid pid = child.pid();
  const Microseconds start = processes.startTime(pid).value();
  EXPECT_TRUE(processes.exists(pid));
  child.end();
  EXPECT_FALSE(processes.pause(pid, start));
  EXPECT_FALSE(processes.exists(pid));
  EXPECT_EQ(processes.startTime(pid), std::nullopt);
  EXPECT_EQ(processes.usage(pid), std::nullopt);
}

TEST_F(RealProcesses, AStartTimeIsEqualInEveryProcessAndNearNow) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const Child child{[&] {
    BootAnchor other{state.path()};
    const Microseconds own = LinuxProcesses("/proc", other).startTime(::getpid()).value();
    [[maybe_unused]] const auto told = ::write(ends[1], &own, sizeof own);
  }};
  Microseconds told = 0;
  ASSERT_EQ(::read(ends[0], &told, sizeof told), static_cast<ssize_t>(sizeof told));
  EXPECT_EQ(processes.startTime(child.pid()), told);
  EXPECT_NEAR(static_cast<double>(processes.now() - told), 0, 5e6);
}

TEST_F(RealProcesses, FactsOfAChild) {
  const TemporaryFolder work;
  const std::string folder = work / "w\xff";
  std::filesystem::create_directories(folder);
  const std::string copy = work / "sleepy";
  std::filesystem::copy_file("/bin/sleep", copy);
  const Child child{[&] {
    if (::chdir(folder.c_str()) != 0) ::_exit(1);
    ::execl(copy.c_str(), "slee\xffpy", "1000", nullptr);
  }};
  std::filesystem::remove(copy);
  EXPECT_EQ(processes.path(child.pid()), copy);  // without the kernel's note
  EXPECT_EQ(processes.arguments(child.pid()), (std::vector<std::string>{"slee\xEF\xBF\xBDpy", "1000"}));
  EXPECT_EQ(processes.workingDirectory(child.pid()), work / "w\xEF\xBF\xBD");
  EXPECT_EQ(processes.parent(child.pid()), ::getpid());
}

TEST_F(RealProcesses, EnergyIsCpuTimeTimesTheWattsOfACore) {
  LinuxProcesses metered{"/proc", anchor, [] { return 2.5; }};
  while (std::clock() < CLOCKS_PER_SEC / 5) {
  }
  const auto usage = metered.usage(::getpid()).value();
  EXPECT_NEAR(static_cast<double>(usage.cpuNanoseconds), std::clock() * (1e9 / CLOCKS_PER_SEC), 5e6)
      << "finer than ticks";
  EXPECT_EQ(usage.energyNanojoules, usage.cpuNanoseconds * 5 / 2);
}

TEST_F(RealProcesses, EmptyArgumentsKeepTheirPlaces) {
  const Child child{[] { ::execl("/bin/sh", "sh", "-c", "kill -STOP $$", "", "b", nullptr); }};
  EXPECT_EQ(processes.arguments(child.pid()), (std::vector<std::string>{"sh", "-c", "kill -STOP $$", "", "b"}));
}

}  // namespace
}  // namespace tovi
