#include "platform/linux/BootAnchor.h"

#include <sys/mman.h>

#include "linux/Helpers.h"

namespace tovi {
namespace {

// A kernel whose clock can be set.
struct FakeKernel {
  TemporaryFolder root;
  void boot(const std::string& id, std::uint64_t btime) {
    put(root / "sys/kernel/random/boot_id", id + "\n");
    put(root / "stat", "cpu 1 2 3\nintr 7\nctxt 1\nbtime " + std::to_string(btime) + "\nprocesses 5\n");
  }
};

TEST(BootAnchor, AClockStepDoesNotMoveStartTimes) {
  FakeKernel kernel;
  const TemporaryFolder home;
  const std::string state = home / "Library/Tovi";  // made at the first use
  kernel.boot("first", 1'700'000'000);
  BootAnchor before{state, kernel.root.path()};
  EXPECT_EQ(before.microseconds(), 1'700'000'000'000'000u);
  EXPECT_EQ(contents(state + "/boot-anchor"), "first 1700000000000000\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(state), {}), 1) << "something was left lying about";

  kernel.boot("first", 1'700'009'999);  // the clock was set
  BootAnchor after{state, kernel.root.path()};
  EXPECT_EQ(after.microseconds(), before.microseconds());
  EXPECT_EQ(after.fromTicks(12'345), before.fromTicks(12'345));

  kernel.boot("second", 1'700'500'000);
  BootAnchor nextBoot{state, kernel.root.path()};
  EXPECT_EQ(nextBoot.microseconds(), 1'700'500'000'000'000u);
  EXPECT_EQ(before.microseconds(), 1'700'000'000'000'000u) << "an anchor must not change within a process";
}

TEST(BootAnchor, ABrokenFileIsReplacedAndTheNextProcessAgrees) {
  for (const std::string broken : {"", "first", "first \n", "first 12x\n", "first 12", " 12\n", "firs 12\n", "\xff\n",
                                   "first 99999999999999999999999\n"}) {
    FakeKernel kernel;
    const TemporaryFolder state;
    put(state / "boot-anchor", broken);
    kernel.boot("first", 1'000);
    EXPECT_EQ(BootAnchor(state.path(), kernel.root.path()).microseconds(), 1'000'000'000u) << broken;
    kernel.boot("first", 2'000);
    EXPECT_EQ(BootAnchor(state.path(), kernel.root.path()).microseconds(), 1'000'000'000u) << broken;
  }
}

TEST(BootAnchor, WithoutAFolderOrABootIdentifierAProcessStillHasStartTimes) {
  FakeKernel kernel;
  const TemporaryFolder home;
  put(home / "file", "");
  kernel.boot("first", 1'000);
  BootAnchor nowhere{home / "file/state", kernel.root.path()};  // not even root can make that
  EXPECT_EQ(nowhere.fromTicks(0), 1'000'000'000u);

  std::filesystem::remove_all(kernel.root / "sys");
  BootAnchor nameless{home / "state", kernel.root.path()};
  EXPECT_EQ(nameless.fromTicks(0), 1'000'000'000u);
}

TEST(BootAnchor, ProcessesThatStartAtTheSameMomentAgree) {
  constexpr int kProcesses = 8, kRounds = 20;
  auto* seen = static_cast<Microseconds*>(
      ::mmap(nullptr, sizeof(Microseconds) * kProcesses, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(seen, MAP_FAILED);
  for (int round = 0; round < kRounds; ++round) {
    const TemporaryFolder fresh;
    if (round % 2 == 1) put(fresh / "boot-anchor", "another-boot 5\n");
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t child = ::fork();
      if (child == 0) {
        ::close(gate[1]);
        char none = 0;
        [[maybe_unused]] const auto opened = ::read(gate[0], &none, 1);
        // Each believes in another time of boot, as after a step of the clock between them.
        FakeKernel kernel;
        kernel.boot("first", 1'000 + static_cast<std::uint64_t>(i));
        seen[i] = BootAnchor(fresh.path(), kernel.root.path()).microseconds();
        std::filesystem::remove_all(kernel.root.path());
        ::_exit(0);
      }
      children.push_back(child);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    for (const pid_t child : children) ::waitpid(child, nullptr, 0);
    for (int i = 1; i < kProcesses; ++i) ASSERT_EQ(seen[i], seen[0]) << "round " << round;
  }
  ::munmap(seen, sizeof(Microseconds) * kProcesses);
}

}  // namespace
}  // namespace tovi
