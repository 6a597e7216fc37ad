#include "platform/simulated/MemoryFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class FilesInMemory : public testing::Test {
 protected:
  MemoryLaptop laptop;
  MemoryFiles& files = laptop.files();
  const std::string home = "/home/anna";

  bool save(const std::string& path, const std::string& text, Files::Sync sync) {
    return files.create(path, std::nullopt) && files.write(path, text, sync);
  }
};

TEST_F(FilesInMemory, ALossOfPowerKeepsWhatWasSynchronised) {
  using Left = std::map<std::string, std::string>;
  constexpr auto yes = Files::Sync::yes, no = Files::Sync::no;
  int number = 0;
  std::string f;  // a folder that holds "old" with the durable text "old"
  const auto left = [&](const std::function<void()>& act) {
    f = home + "/case" + std::to_string(++number);
    files.put(f + "/old", "old");
    act();
    laptop.powerLoss();
    Left found;
    const auto names = files.list(f).value();
    for (const std::string& name : names) found[name] = files.read(f + "/" + name).value();
    return found;
  };
  const auto replace = [&] { return save(f + "/tmp", "n", yes) && files.rename(f + "/tmp", f + "/old"); };
  const Left before{{"old", "old"}};
  EXPECT_EQ(left([&] { save(f + "/new", "n", yes); }), before) << "a new name whose folder wasn't synchronised";
  EXPECT_EQ(left([&] { save(f + "/new", "n", no), files.syncFolder(f); }), (Left{{"old", "old"}, {"new", ""}}));
  EXPECT_EQ(left([&] { save(f + "/new", "n", yes), files.syncFolder(f); }), (Left{{"old", "old"}, {"new", "n"}}));
  EXPECT_EQ(left([&] { files.write(f + "/old", "x", no); }), before) << "bytes written over durable ones";
  EXPECT_EQ(left([&] { files.write(f + "/old", "x", yes); }), (Left{{"old", "x"}}));
  EXPECT_EQ(left([&] { replace(); }), before) << "a replacement that wasn't synchronised";
  EXPECT_EQ(left([&] { replace(), files.syncFolder(f); }), (Left{{"old", "n"}}));
  EXPECT_EQ(left([&] { files.remove(f + "/old"); }), before) << "a removal that wasn't";
  EXPECT_EQ(left([&] { files.remove(f + "/old"), files.syncFolder(f); }), Left{});
}

TEST_F(FilesInMemory, OperationsThatCannotHappenAreRefusedAndNotCounted) {
  files.put(home + "/file", "x");
  files.put(home + "/locked/inside", "x");
  files.put(home + "/secret", "x", 0200);
  files.setMode(home + "/locked", 0555);
  const std::int64_t before = laptop.faults().operations();
  EXPECT_FALSE(files.write(home + "/none", "x", Files::Sync::no)) << "write doesn't create";
  EXPECT_FALSE(files.create(home + "/file/x", std::nullopt));
  EXPECT_FALSE(files.rename(home + "/file", home + "/locked"));
  EXPECT_FALSE(files.remove(home + "/locked")) << "it isn't empty";
  EXPECT_FALSE(files.remove(home + "/locked/inside")) << "its folder may not be written";
  EXPECT_FALSE(files.makeFolders(home + "/file/x") && laptop.faults().operations() == before);
  EXPECT_FALSE(files.read(home + "/secret"));
  EXPECT_EQ(laptop.faults().operations(), before + 1) << "only the making of folders was tried";
}

TEST_F(FilesInMemory, AFullDiskAndAReadOnlyFolderTakeNothing) {
  files.put(home + "/there", "old");
  files.setFull(true);
  EXPECT_FALSE(files.create(home + "/new", std::nullopt));
  EXPECT_FALSE(files.write(home + "/there", "newer", Files::Sync::yes));
  EXPECT_EQ(files.read(home + "/there"), "old");
  EXPECT_TRUE(files.remove(home + "/there"));
  files.setFull(false);
  files.put(home + "/ro/deep/file", "x");
  files.setReadOnly(home + "/ro");
  EXPECT_FALSE(files.write(home + "/ro/deep/file", "y", Files::Sync::no));
  EXPECT_FALSE(files.create(home + "/ro/deep/new", std::nullopt));
  EXPECT_FALSE(files.remove(home + "/ro/deep/file"));
  EXPECT_FALSE(files.setModified(home + "/ro/deep/file", laptop.now()));
}

TEST_F(FilesInMemory, PathsAreFollowedAsASystemDoes) {
  files.put(home + "/a/b/file", "text");
  ASSERT_TRUE(files.link("a/b", home + "/short"));
  ASSERT_TRUE(files.link(home + "/short/file", home + "/a/there"));
  ASSERT_TRUE(files.link("loop", home + "/loop"));
  EXPECT_EQ(files.resolve(home + "//a/../short/./file"), home + "/a/b/file");
  EXPECT_EQ(files.read(home + "/a/there"), "text");
  EXPECT_FALSE(files.resolve(home + "/loop"));
  EXPECT_FALSE(files.exists(home + "/short/none"));
  EXPECT_TRUE(files.remove(home + "/short")) << "the link, not the folder";
  EXPECT_TRUE(files.exists(home + "/a/b/file"));
}

TEST_F(FilesInMemory, ALockEndsWithItsHandleOrItsProcess) {
  auto lock = files.tryLock(home + "/app.lock");
  ASSERT_TRUE(lock);
  EXPECT_EQ(files.status(home + "/app.lock")->mode, 0600u);
  EXPECT_FALSE(files.tryLock(home + "/app.lock"));
  lock.reset();
  lock = files.tryLock(home + "/app.lock");
  ASSERT_TRUE(lock);
  laptop.restart();
  auto mine = files.tryLock(home + "/app.lock");
  EXPECT_TRUE(mine);
  lock.reset();
  EXPECT_FALSE(files.tryLock(home + "/app.lock")) << "a dead process's handle frees nothing of the living";
}

}  // namespace
}  // namespace tovi
