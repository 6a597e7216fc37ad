#include "platform/linux/LinuxFiles.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "linux/Helpers.h"

namespace tovi {
namespace {

class RealFiles : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  LinuxFiles files;
};

TEST_F(RealFiles, WritingReplacesTheContentOfAnExistingFileOnly) {
  const std::string path = folder / "a";
  EXPECT_FALSE(files.write(path, "x", Files::Sync::no)) << "a file came into being by writing";
  EXPECT_FALSE(files.exists(path));
  ASSERT_TRUE(files.create(path, {}));
  const std::string long_(300'000, 'l');
  ASSERT_TRUE(files.write(path, long_, Files::Sync::yes));
  EXPECT_EQ(files.read(path), long_);
  ASSERT_TRUE(files.write(path, "short", Files::Sync::no));
  EXPECT_EQ(files.read(path), "short");
}

TEST_F(RealFiles, AModeIsExactWhateverTheMaskAndNeverWiderBefore) {
  const mode_t before = ::umask(077);
  EXPECT_TRUE(files.create(folder / "script", 0755));
  EXPECT_TRUE(files.create(folder / "plain", {}));
  ::umask(0);
  EXPECT_TRUE(files.create(folder / "default", {}));
  put(folder / "wide", "old");
  EXPECT_TRUE(files.create(folder / "wide", 0600));
  put(folder / "target", "somebody's");
  ASSERT_EQ(::symlink((folder / "target").c_str(), (folder / "link").c_str()), 0);
  EXPECT_TRUE(files.create(folder / "link", 0600));
  ::umask(before);
  EXPECT_EQ(files.read(folder / "target"), "somebody's");
  EXPECT_EQ(files.linkStatus(folder / "link")->kind, FileStatus::Kind::file);
  EXPECT_EQ(files.status(folder / "script")->mode, 0755u);
  EXPECT_EQ(files.status(folder / "plain")->mode, 0600u);
  EXPECT_EQ(files.status(folder / "default")->mode, 0644u);
  EXPECT_EQ(files.status(folder / "wide")->mode, 0600u);
}

TEST_F(RealFiles, OnlyRegularFilesAreRead) {
  EXPECT_EQ(files.read(folder.path()), std::nullopt);
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(files.read(folder / "pipe"), std::nullopt);  // and doesn't wait for a writer
  EXPECT_FALSE(files.write(folder / "pipe", "x", Files::Sync::no));
  EXPECT_EQ(files.read("/dev/zero"), std::nullopt);
  EXPECT_TRUE(files.read("/proc/self/status").has_value());  // a file that tells no size
  std::ofstream{folder / "huge"};
  std::filesystem::resize_file(folder / "huge", (std::uintmax_t{64} << 20) + 1);
  EXPECT_EQ(files.read(folder / "huge"), std::nullopt);
}

TEST_F(RealFiles, AFullDiskIsAFailureNotAShortFile) {
  ASSERT_TRUE(files.create(folder / "a", {}));
  const pid_t child = ::fork();  // the limit would stay with this process
  if (child == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{5000, 5000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::_exit(files.write(folder / "a", std::string(10'000, 'x'), Files::Sync::no) ? 1 : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "a write that met the limit half-way said it was done";
  EXPECT_FALSE(files.write("/dev/full", "x", Files::Sync::no));
}

TEST_F(RealFiles, StatusFollowsLinksAndDatesKeepTheirFraction) {
  put(folder / "a", "12345");
  std::filesystem::create_symlink("a", folder / "link");
  std::filesystem::create_symlink("nowhere", folder / "dangling");
  ASSERT_TRUE(files.setModified(folder / "a", dateFromUnix(1'000'000.25)));
  const auto status = files.status(folder / "link").value();
  EXPECT_EQ(status.kind, FileStatus::Kind::file);
  EXPECT_EQ(status.size, 5u);
  EXPECT_NEAR(unixSeconds(status.modified), 1'000'000.25, 1e-6);
  EXPECT_EQ(files.status(folder / "dangling"), std::nullopt);
  EXPECT_EQ(files.resolve(folder / "link"), std::filesystem::canonical(folder / "a").string());
  EXPECT_EQ(files.resolve(folder / "dangling"), std::nullopt);
}

TEST_F(RealFiles, FoldersAreMadeListedAndRemoved) {
  EXPECT_TRUE(files.makeFolders(folder / "a/b/c") && files.makeFolders(folder / "a/b/c/"));
  EXPECT_EQ(files.status(folder / "a/b/c")->kind, FileStatus::Kind::folder);
  put(folder / "a/file", "");
  EXPECT_FALSE(files.makeFolders(folder / "a/file/d") || files.makeFolders(folder / "a/file"));
  EXPECT_EQ(files.list(folder / "a")->size(), 2u);
  EXPECT_EQ(files.list(folder / "missing"), std::nullopt);
  EXPECT_TRUE(files.syncFolder(folder / "a"));
  EXPECT_FALSE(files.remove(folder / "a")) << "a folder with something in it";
  EXPECT_TRUE(files.remove(folder / "a/file"));
  EXPECT_FALSE(files.remove(folder / "a/file") || files.rename(folder / "a/file", folder / "x"));
}

TEST_F(RealFiles, ALockIsHeldByOneUntilItGoes) {
  auto lock = files.tryLock(folder / "app.lock");
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(files.status(folder / "app.lock")->mode, 0600u);
  EXPECT_EQ(files.tryLock(folder / "app.lock"), nullptr);
  const Child executes{[] { ::execl("/bin/sleep", "sleep", "1000", nullptr); }};
  ASSERT_TRUE(eventually([&] { return contents("/proc/" + std::to_string(executes.pid()) + "/comm") == "sleep\n"; }));
  lock.reset();  // a program that was started meanwhile doesn't hold it either
  Child child{[&] {
    static auto held = files.tryLock(folder / "app.lock").release();
    (void)held;
  }};
  EXPECT_EQ(files.tryLock(folder / "app.lock"), nullptr) << "two processes hold it";
  child.end();
  EXPECT_NE(files.tryLock(folder / "app.lock"), nullptr) << "the lock outlives its process";
  EXPECT_EQ(files.tryLock(folder / "missing/app.lock"), nullptr);
}

}  // namespace
}  // namespace tovi
