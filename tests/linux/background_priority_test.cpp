#include "platform/linux/BackgroundPriority.h"

#include <linux/ioprio.h>
#include <sys/syscall.h>

#include <future>
#include <memory>

#include "linux/Helpers.h"
#include "platform/linux/BootAnchor.h"
#include "platform/linux/CpuSet.h"
#include "platform/linux/LinuxProcesses.h"

namespace tovi {
namespace {

Pid threadId() { return static_cast<Pid>(::syscall(SYS_gettid)); }

long ioClass(Pid thread) {
  return static_cast<long>(IOPRIO_PRIO_CLASS(::syscall(SYS_ioprio_get, IOPRIO_WHO_PROCESS, thread)));
}

// "Cpus_allowed_list" as the kernel shows it.
std::string allowedList(Pid pid, Pid thread) {
  const std::string status = contents("/proc/" + std::to_string(pid) + "/task/" + std::to_string(thread) + "/status");
  const auto at = status.find("Cpus_allowed_list:\t");
  if (at == std::string::npos) return "gone";
  const auto begin = at + 19;
  return status.substr(begin, status.find('\n', begin) - begin);
}

// A process of several threads, one of which has chosen the first processor for itself and one an I/O level.
class Threads : public ::testing::Test {
 protected:
  void SetUp() override {
    if (fullCpuSet().count() < 2) GTEST_SKIP() << "one processor: nothing to confine to";
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    int more[2];
    ASSERT_EQ(::pipe2(more, O_CLOEXEC), 0);
    ask_ = more[1];
    hear_ = ends[0];
    child = std::make_unique<Child>([&] {
      const auto tell = [out = ends[1]] {
        const Pid own = threadId();
        [[maybe_unused]] const auto told = ::write(out, &own, sizeof own);
      };
      tell();
      const auto thread = [&](auto prepare) {
        std::promise<void> told;
        std::thread([tell, &told, prepare] {
          prepare();
          tell();
          told.set_value();
          while (true) ::pause();
        }).detach();
        told.get_future().wait();
      };
      thread([] {});
      thread([] {
        CpuSet first;
        first.add(0);
        first.applyTo(0);
      });
      thread([] { ::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_BE, 1)); });
      // A new thread or child on demand, started by the first thread.
      std::thread([tell, ask = more[0]] {
        const auto live = [tell] {
          tell();
          while (true) ::pause();
        };
        char what = 0;
        while (::read(ask, &what, 1) == 1) {
          if (what == 't') std::thread(live).detach();
          if (what == 'c' && ::fork() == 0) live();
        }
      }).detach();
    });
    main_ = hear();
    plain_ = hear();
    pinned_ = hear();
    io_ = hear();
    start = processes.startTime(child->pid()).value();
  }
  void TearDown() override {
    child.reset();
    for (const int fd : {ask_, hear_}) {
      if (fd >= 0) ::close(fd);
    }
  }

  Pid hear() {
    Pid thread = 0;
    EXPECT_EQ(::read(hear_, &thread, sizeof thread), static_cast<ssize_t>(sizeof thread));
    return thread;
  }
  Pid another(char what) {
    EXPECT_EQ(::write(ask_, &what, 1), 1);
    return hear();
  }
  std::string allowed(Pid thread) { return allowedList(child->pid(), thread); }

  TemporaryFolder state;
  BootAnchor anchor{state.path()};
  LinuxProcesses processes{"/proc", anchor};
  std::unique_ptr<Child> child;
  Pid main_ = 0, plain_ = 0, pinned_ = 0, io_ = 0;
  Microseconds start = 0;
  int ask_ = -1, hear_ = -1;
};

TEST_F(Threads, EveryThreadIsConfinedAndWidenedAgainAndNobodysOwnChoiceIsLost) {
  const std::string everywhere = allowed(main_);
  const std::string first = allowed(pinned_);
  ASSERT_NE(everywhere, first);
  ASSERT_TRUE(processes.setBackgroundPriority(child->pid(), start));
  const std::string slow = allowed(main_);
  EXPECT_NE(slow, everywhere);
  EXPECT_EQ(allowed(plain_), slow);
  EXPECT_EQ(allowed(pinned_), first) << "a thread that had chosen its processor was moved";
  EXPECT_EQ(ioClass(main_), IOPRIO_CLASS_IDLE);
  EXPECT_EQ(ioClass(plain_), IOPRIO_CLASS_IDLE);
  EXPECT_NE(ioClass(pinned_), IOPRIO_CLASS_IDLE);
  EXPECT_EQ(ioClass(io_), IOPRIO_CLASS_BE) << "a thread that had chosen its I/O level lost it";

  const Pid born = another('t');
  EXPECT_EQ(allowed(born), slow);
  CpuSet::every().applyTo(born);
  ASSERT_NE(allowed(born), slow);
  ASSERT_TRUE(processes.setBackgroundPriority(child->pid(), start)) << "a second time is no failure";
  EXPECT_EQ(allowed(born), slow) << "one that became wide since";

  ASSERT_TRUE(processes.setNormalPriority(child->pid(), start));
  for (const Pid thread : {main_, plain_, io_, born}) {
    EXPECT_EQ(allowed(thread), everywhere);
    EXPECT_NE(ioClass(thread), IOPRIO_CLASS_IDLE);
  }
  EXPECT_EQ(ioClass(io_), IOPRIO_CLASS_BE);
  if (first != slow) {  // else its own choice can't be told from ours
    EXPECT_EQ(allowed(pinned_), first);
  }
}

// Children inherit their parent's processors, and nobody has written them down.
TEST_F(Threads, ChildrenOfASlowedProcessAreFreedToo) {
  const std::string everywhere = allowed(main_);
  ASSERT_TRUE(processes.setBackgroundPriority(child->pid(), start));
  const Pid inherits = another('c');
  EXPECT_TRUE(processes.setNormalPriority(child->pid(), start));
  EXPECT_NE(allowedList(inherits, inherits), everywhere) << "then nothing more would be needed";
  processes.restoreInheritedPriority({});
  EXPECT_EQ(allowedList(inherits, inherits), everywhere);
  EXPECT_NE(ioClass(inherits), IOPRIO_CLASS_IDLE);
  ::kill(inherits, SIGKILL);
}

TEST_F(Threads, AnotherProcessByTheSameNumberIsLeftAlone) {
  const std::string before = allowed(main_);
  EXPECT_FALSE(processes.setBackgroundPriority(child->pid(), start + 10'000));
  EXPECT_EQ(allowed(main_), before);
  ASSERT_TRUE(processes.setBackgroundPriority(child->pid(), start));
  const std::string slow = allowed(main_);
  EXPECT_FALSE(processes.setNormalPriority(child->pid(), start - 10'000));
  EXPECT_EQ(allowed(main_), slow);
}

TEST(BackgroundPriority, ARefusalIsAFailure) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can make another person's process";
  const Child other;
  const TemporaryFolder state;
  BootAnchor anchor{state.path()};
  const Microseconds start = LinuxProcesses("/proc", anchor).startTime(other.pid()).value();
  const pid_t stranger = ::fork();
  if (stranger == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(9);
    LinuxProcesses theirs{"/proc", anchor};
    const bool any = theirs.setBackgroundPriority(other.pid(), start) || theirs.pause(other.pid(), start);
    ::_exit(any ? 1 : theirs.exists(other.pid()) ? 0 : 2);
  }
  int status = 0;
  ::waitpid(stranger, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(BackgroundPriority, ThreadsThatVanishOrNeverWereAreNoRefusal) {
  // A thread list that names one that doesn't exist, as one that ended since the listing.
  const TemporaryFolder proc;
  std::filesystem::create_directories(proc / "5/task/2147483646");
  BackgroundPriority priority{proc.path()};
  EXPECT_TRUE(priority.confine(5, [] { return true; }));
  EXPECT_TRUE(priority.release(5, [] { return true; }));
  EXPECT_FALSE(priority.confine(6, [] { return true; })) << "no such process";
}

}  // namespace
}  // namespace tovi
