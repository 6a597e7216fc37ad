#include "platform/linux/ProcessPicture.h"

#include "linux/Helpers.h"

namespace tovi {
namespace {

// A process folder that the test writes. Ages are in seconds.
class FakeProc : public ::testing::Test {
 protected:
  FakeProc() {
    put(root / "sys/kernel/pid_max", "1000\n");
    forks(100);
  }

  void forks(int count) { put(root / "stat", "cpu 1\nbtime 1000\nprocesses " + std::to_string(count) + "\n"); }

  void process(Pid pid, Pid parent, double age, const std::string& path) {
    const double ticks = (static_cast<double>(anchor.now() - anchor.microseconds()) / 1e6 - age) * 100;
    start_[pid] = ticks > 0 ? static_cast<std::uint64_t>(ticks) : 0;
    state(pid, parent);
    exec(pid, path);
  }
  void state(Pid pid, Pid parent) {
    put(folder(pid) + "/stat", std::to_string(pid) + " (a) b) S " + std::to_string(parent) +
                                   " 1 1 0 -1 0 0 0 0 0 5 6 0 0 20 0 1 0 " + std::to_string(start_[pid]) + " 0 0\n");
  }
  void exec(Pid pid, const std::string& path) {
    std::filesystem::remove(folder(pid) + "/exe");
    std::filesystem::create_symlink(path, folder(pid) + "/exe");
  }
  std::string folder(Pid pid) { return root / std::to_string(pid); }

  // How many pictures it takes until the condition holds, 100 if it never does.
  int picturesUntil(const std::function<bool(const ProcessTable&)>& condition) {
    for (int count = 1; count < 100; ++count) {
      if (condition(picture.bringUpToDate())) return count;
    }
    return 100;
  }

  TemporaryFolder state_, root;
  BootAnchor anchor{state_.path()};
  ProcessPicture picture{root.path(), anchor};
  std::map<Pid, std::uint64_t> start_;
};

// Old means: past the age at which a process is read every time. The machine may have run for less than that.
constexpr double kOld = 1e9;

TEST_F(FakeProc, FactsAreReadAndAnEntryKeepsItsGeneration) {
  process(1, 0, kOld, "/sbin/init");
  process(50, 1, 5, "/usr/bin/tool (deleted)");
  process(7, 1, 5, "/bin/\xff");
  process(60, 1, 5, "/bin/secret");
  std::filesystem::remove(folder(60) + "/exe");  // as another person's is
  std::filesystem::create_directories(root / "12x");
  std::filesystem::create_directories(folder(31));  // listed, but gone before it was read
  const auto first = picture.bringUpToDate().entries();
  ASSERT_EQ(first.size(), 4u);
  EXPECT_EQ(first[0].pid, 1);
  EXPECT_EQ(first[1].path, "/bin/\xEF\xBF\xBD");
  EXPECT_EQ(first[2].path, "/usr/bin/tool");
  EXPECT_EQ(first[2].parent, 1);
  EXPECT_EQ(first[3].path, std::nullopt);
  EXPECT_EQ(first[2].start, anchor.fromTicks(start_[50]));
  for (int i = 0; i < 40; ++i) {
    const auto again = picture.bringUpToDate().entries();
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(again.at(k).generation, first[k].generation);
  }
}

TEST_F(FakeProc, AYoungProcessThatExecsIsSeenAtOnceAndAnOldOneByTurns) {
  process(20, 1, 5, "/bin/sh");
  process(21, 1, kOld, "/bin/sh");
  const auto before = picture.bringUpToDate().entries();
  exec(20, "/bin/new");
  exec(21, "/bin/new");
  if (start_[21] == 0 && anchor.now() - anchor.microseconds() > ProcessPicture::kYoung) {
    const int count = picturesUntil([&](const ProcessTable& table) {
      EXPECT_EQ(table.find(20)->path, "/bin/new");
      return table.find(21)->path == "/bin/new";
    });
    EXPECT_GT(count, 1) << "an old process is read at every picture";
    EXPECT_LE(count, 16);
    state(21, 77);  // a new parent though the old one is still listed, as when that one is a zombie
    EXPECT_LE(picturesUntil([](const ProcessTable& table) { return table.find(21)->parent == 77; }), 64);
  }
  EXPECT_EQ(picture.bringUpToDate().find(20)->path, "/bin/new");
  EXPECT_NE(picture.bringUpToDate().find(20)->generation, before[0].generation);
}

TEST_F(FakeProc, AnOrphanGetsItsNewParentInTheNextPicture) {
  process(1, 0, kOld, "/sbin/init");
  for (Pid pid = 100; pid < 132; ++pid) process(pid, 99, kOld, "/bin/child");  // every turn among them
  process(99, 1, kOld, "/bin/parent");
  picture.bringUpToDate();
  std::filesystem::remove_all(folder(99));
  for (Pid pid = 100; pid < 132; ++pid) state(pid, 1);
  const ProcessTable& table = picture.bringUpToDate();
  EXPECT_EQ(table.find(99), nullptr);
  for (Pid pid = 100; pid < 132; ++pid) EXPECT_EQ(table.find(pid)->parent, 1) << pid;
}

TEST_F(FakeProc, APidThatMayHaveBeenGivenAwayIsReadAfresh) {
  for (Pid pid = 100; pid < 132; ++pid) process(pid, 1, kOld, "/bin/old");
  const auto before = picture.bringUpToDate().entries();
  for (Pid pid = 100; pid < 132; ++pid) {
    start_[pid] = 1 + start_[pid];  // another process by the same number and of the same program
    state(pid, 1);
  }
  forks(100 + 500);  // half of the cycle
  const auto after = picture.bringUpToDate().entries();
  for (std::size_t i = 0; i < before.size(); ++i) {
    EXPECT_EQ(after[i].start, anchor.fromTicks(start_[after[i].pid]));
    EXPECT_NE(after[i].generation, before[i].generation);
  }
  // Without a counter nothing may be kept either, and what is the same keeps its generation.
  put(root / "stat", "cpu 1\n");
  for (Pid pid = 100; pid < 132; ++pid) exec(pid, pid < 116 ? "/bin/other" : "/bin/old");
  const auto last = picture.bringUpToDate().entries();
  for (std::size_t i = 0; i < last.size(); ++i) {
    EXPECT_EQ(last[i].generation != after[i].generation, last[i].pid < 116) << last[i].pid;
  }
}

}  // namespace
}  // namespace tovi
