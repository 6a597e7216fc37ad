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
  const struct {
    const char* what;
    std::function<void(const std::string&)> act;  // on a folder that holds "old" with the durable text "old"
    std::map<std::string, std::string> left;      // names and texts
  } cases[] = {
      {"a new name whose folder wasn't synchronised",
       [&](auto& f) { save(f + "/new", "n", Files::Sync::yes); },
       {{"old", "old"}}},
      {"a durable name without durable bytes",
       [&](auto& f) {
         save(f + "/new", "n", Files::Sync::no);
         files.syncFolder(f);
       },
       {{"old", "old"}, {"new", ""}}},
      {"both",
       [&](auto& f) {
         save(f + "/new", "n", Files::Sync::yes);
         files.syncFolder(f);
       },
       {{"old", "old"}, {"new", "n"}}},
      {"bytes written over durable ones",
       [&](auto& f) { files.write(f + "/old", "x", Files::Sync::no); },
       {{"old", "old"}}},
      {"the same, synchronised", [&](auto& f) { files.write(f + "/old", "x", Files::Sync::yes); }, {{"old", "x"}}},
      {"a replacement that wasn't synchronised",
       [&](auto& f) {
         save(f + "/tmp", "n", Files::Sync::yes);
         files.rename(f + "/tmp", f + "/old");
       },
       {{"old", "old"}}},
      {"a replacement that was",
       [&](auto& f) {
         save(f + "/tmp", "n", Files::Sync::yes);
         files.rename(f + "/tmp", f + "/old");
         files.syncFolder(f);
       },
       {{"old", "n"}}},
      {"a removal that wasn't", [&](auto& f) { files.remove(f + "/old"); }, {{"old", "old"}}},
      {"a removal that was",
       [&](auto& f) {
         files.remove(f + "/old");
         files.syncFolder(f);
       },
       {}},
  };
  for (const auto& [what, act, left] : cases) {
    const std::string folder = home + "/case" + std::to_string(&left - &cases[0].left);
    files.put(folder + "/old", "old");
    act(folder);
    laptop.powerLoss();
    std::map<std::string, std::string> found;
    const auto names = files.list(folder).value();
    for (const std::string& name : names) found[name] = files.read(folder + "/" + name).value();
    EXPECT_EQ(found, left) << what;
  }
}

TEST_F(FilesInMemory, AKilledProcessLosesNothing) {
  save(home + "/a", "text", Files::Sync::no);
  laptop.restart();
  EXPECT_EQ(files.read(home + "/a"), "text");
}

TEST_F(FilesInMemory, OperationsThatCannotHappenAreRefusedAndNotCounted) {
  files.put(home + "/file", "x");
  files.put(home + "/locked/inside", "x");
  files.put(home + "/secret", "x", 0200);
  files.setMode(home + "/locked", 0555);
  const std::int64_t before = laptop.faults().operations();
  EXPECT_FALSE(files.write(home + "/none", "x", Files::Sync::no)) << "write doesn't create";
  EXPECT_FALSE(files.create(home + "/none/x", std::nullopt));
  EXPECT_FALSE(files.create(home + "/file/x", std::nullopt));
  EXPECT_FALSE(files.create(home, std::nullopt));
  EXPECT_FALSE(files.rename(home + "/none", home + "/x"));
  EXPECT_FALSE(files.rename(home + "/file", home + "/locked"));
  EXPECT_FALSE(files.rename(home, home + "/deeper"));
  EXPECT_FALSE(files.remove(home + "/none"));
  EXPECT_FALSE(files.remove(home + "/locked")) << "it isn't empty";
  EXPECT_FALSE(files.remove(home + "/locked/inside")) << "its folder may not be written";
  EXPECT_FALSE(files.create(home + "/locked/new", std::nullopt));
  EXPECT_FALSE(files.makeFolders(home + "/file/x") && laptop.faults().operations() == before);
  EXPECT_FALSE(files.read(home + "/secret"));
  EXPECT_FALSE(files.read(home));
  EXPECT_FALSE(files.list(home + "/file"));
  EXPECT_EQ(laptop.faults().operations(), before + 1) << "only the making of folders was tried";
}

TEST_F(FilesInMemory, AFullDiskAndAReadOnlyFolderTakeNothing) {
  files.put(home + "/there", "old");
  files.setFull(true);
  EXPECT_FALSE(files.create(home + "/new", std::nullopt));
  EXPECT_FALSE(files.write(home + "/there", "newer", Files::Sync::yes));
  EXPECT_EQ(files.read(home + "/there"), "old");
  EXPECT_FALSE(files.makeFolders(home + "/folder"));
  EXPECT_TRUE(files.remove(home + "/there"));
  files.setFull(false);
  EXPECT_TRUE(files.create(home + "/new", 0600));
  EXPECT_EQ(files.status(home + "/new")->mode, 0600u);

  files.put(home + "/ro/deep/file", "x");
  files.setReadOnly(home + "/ro");
  EXPECT_FALSE(files.write(home + "/ro/deep/file", "y", Files::Sync::no));
  EXPECT_FALSE(files.create(home + "/ro/deep/new", std::nullopt));
  EXPECT_FALSE(files.remove(home + "/ro/deep/file"));
  EXPECT_FALSE(files.rename(home + "/new", home + "/ro/new"));
  EXPECT_FALSE(files.setModified(home + "/ro/deep/file", laptop.now()));
  files.setReadOnly(home + "/ro", false);
  EXPECT_TRUE(files.write(home + "/ro/deep/file", "y", Files::Sync::no));
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
  EXPECT_EQ(files.resolve("/"), "/");
}

TEST_F(FilesInMemory, StatusTellsOneFileFromItsReplacement) {
  save(home + "/a", "1", Files::Sync::no);
  const auto first = files.status(home + "/a").value();
  EXPECT_EQ(first.modified, laptop.now());
  laptop.advance(5);
  save(home + "/b", "2", Files::Sync::no);
  files.rename(home + "/b", home + "/a");
  const auto second = files.status(home + "/a").value();
  EXPECT_NE(first.inode, second.inode);
  EXPECT_EQ(secondsBetween(first.modified, second.modified), 5);
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

TEST_F(FilesInMemory, NewsOfAFileComesOnTheNextTurnAndOnce) {
  int calls = 0;
  auto watch = files.watch(home, "config.json", [&] { ++calls; });
  EXPECT_FALSE(files.watch(home + "/none", "x", [] {}));
  save(home + "/config.tmp", "x", Files::Sync::no);
  laptop.settle();
  EXPECT_EQ(calls, 0) << "another name";
  files.rename(home + "/config.tmp", home + "/config.json");
  files.write(home + "/config.json", "y", Files::Sync::no);
  EXPECT_EQ(calls, 0);
  laptop.settle();
  EXPECT_EQ(calls, 1);
  files.remove(home + "/config.json");
  laptop.settle();
  EXPECT_EQ(calls, 2);
  watch.reset();
  files.put(home + "/config.json", "z");
  laptop.settle();
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace tovi
