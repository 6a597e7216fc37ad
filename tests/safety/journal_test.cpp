#include "safety/Journal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"
#include "safety/Safety.h"

namespace tovi {
namespace {

using Kind = ProcessEffect::Kind;

class JournalTest : public testing::Test {
 protected:
  MemoryLaptop laptop_;
  StateFiles state_{laptop_.machine()};

  Touched touch(bool paused, const std::string& path = "/Applications/Mail.app/Contents/MacOS/Mail", Pid pid = 0) {
    pid = laptop_.processes().add({.pid = pid, .path = path, .stopped = paused, .background = !paused});
    return {pid, *laptop_.processes().startTime(pid), path, paused};
  }
  std::vector<Touched> undo(const std::vector<Touched>& list) { return Journal::undo(laptop_.machine(), list); }
  bool save(const std::vector<Touched>& list) { return Journal::save(laptop_.machine(), state_, list); }
  void put(const std::string& name, std::string_view content) { laptop_.files().put(state_.path(name), content); }
};

TEST_F(JournalTest, PutsBackWhatItTouchedAndForgetsIt) {
  const Touched mail = touch(true);
  const Touched build = touch(false, "/usr/bin/make");
  ASSERT_TRUE(save({mail, build}));
  EXPECT_EQ(Journal::load(state_), (std::vector{mail, build}));
  EXPECT_TRUE(undo(Journal::load(state_)).empty());
  EXPECT_EQ(laptop_.processes().effects(),
            (std::vector<ProcessEffect>{{Kind::resume, mail.pid, mail.start}, {Kind::normal, build.pid, build.start}}));
  EXPECT_TRUE(save({}));
  EXPECT_FALSE(state_.exists("touched.json"));
  EXPECT_TRUE(save({}));
}

TEST_F(JournalTest, NeverTouchesAProcessThatIsAnother) {
  struct Case {
    const char* name;
    std::function<void(MemoryProcesses&, Touched&)> happened;
  };
  const Case cases[] = {
      {"it has gone", [](auto& processes, auto& entry) { processes.exit(entry.pid); }},
      {"its number is another's now",
       [](auto& processes, auto& entry) { processes.add({.pid = entry.pid, .path = entry.path, .stopped = true}); }},
      {"it runs another program", [](auto& processes, auto& entry) { processes.exec(entry.pid, "/bin/zsh"); }},
      {"it cannot be read any more",
       [](auto& processes, auto& entry) {
         processes.add({.pid = entry.pid, .path = entry.path, .start = entry.start, .mine = false});
       }},
      {"the record is off by a microsecond", [](auto&, auto& entry) { ++entry.start; }},
      {"the record's path is cut short", [](auto&, auto& entry) { entry.path.pop_back(); }},
  };
  for (const Case& one : cases) {
    for (const bool paused : {true, false}) {
      Touched entry = touch(paused);
      one.happened(laptop_.processes(), entry);
      EXPECT_TRUE(undo({entry}).empty()) << one.name;
      EXPECT_TRUE(laptop_.processes().effects().empty()) << one.name;
      laptop_.processes().exit(entry.pid);
    }
  }
}

TEST_F(JournalTest, KeepsTheOneThatTheSystemRefusedAndOnlyThat) {
  const Touched first = touch(true), second = touch(false), third = touch(true);
  laptop_.faults().failOperation(laptop_.faults().operations() + 2);
  EXPECT_EQ(undo({first, second, third}), std::vector{second});
  EXPECT_TRUE(undo({second}).empty()) << "the next try";
}

TEST_F(JournalTest, NeverSignalsInitOrItself) {
  const Touched init = touch(true, "/sbin/launchd", 1);
  const Pid self = laptop_.processes().self();
  const Touched own{self, *laptop_.processes().startTime(self), *laptop_.processes().path(self), true};
  EXPECT_EQ(undo({init, own}), (std::vector{init, own}));
  EXPECT_TRUE(laptop_.processes().effects().empty());
  Touched slowedSelf = own;
  slowedSelf.paused = false;
  EXPECT_TRUE(undo({slowedSelf}).empty()) << "its own priority it may put back";
  EXPECT_TRUE(undo({{0, 0, "", true}, {-7, 0, "", false}}).empty());
}

// The file holds text, so such a path can't stand in it byte for byte.
TEST_F(JournalTest, PutsBackAProcessWhosePathIsNotText) {
  const Touched odd = touch(true, "/tmp/\xFF\xC3(bad");
  ASSERT_TRUE(save({odd}));
  const auto loaded = Journal::load(state_);
  ASSERT_EQ(loaded.size(), 1u);
  EXPECT_TRUE(undo(loaded).empty());
  EXPECT_FALSE(laptop_.processes().stopped(odd.pid));
}

TEST_F(JournalTest, TakesOnlyAListOfWholeEntries) {
  const std::string whole = R"([{"pid":5,"start":6,"path":"/a","paused":true}])";
  EXPECT_EQ(Journal::decode(whole), (std::vector<Touched>{{5, 6, "/a", true}}));
  const std::pair<const char*, const char*> harm[] = {
      {"\"pid\":5,", ""},
      {"\"start\":6,", ""},
      {"\"path\":\"/a\",", ""},
      {",\"paused\":true", ""},
      {"5", "5.0"},
      {"5", "\"5\""},
      {"5", "2147483648"},
      {"5", "-2147483649"},
      {"5", "18446744073709551615"},
      {"6", "-6"},
      {"6", "6.5"},
      {"6", "18446744073709551616"},
      {"\"/a\"", "null"},
      {"true", "1"},
      {"}]", "}] x"},
      {"}]", "},{\"pid\":5}]"},
      {"{", "[{"},
  };
  for (const auto& [part, by] : harm) {
    std::string text = whole;
    text.replace(text.find(part), std::strlen(part), by);
    EXPECT_TRUE(Journal::decode(text).empty()) << text;
  }
  for (const char* text : {"", "null", "{}", "[1]", "[[]]"}) EXPECT_TRUE(Journal::decode(text).empty()) << text;
  EXPECT_EQ(Journal::decode(R"( [ {"paused":false, "path":"/a", "start":18446744073709551615, "pid":-1, "new":[]} ] )"),
            (std::vector<Touched>{{-1, UINT64_MAX, "/a", false}}));
}

TEST_F(JournalTest, ACutOrFlippedFileReachesNoOtherProcess) {
  const Touched mail = touch(true), build = touch(false);
  for (Pid pid = 1; pid < 3000; ++pid) {
    laptop_.advance(0.01);
    if (!laptop_.processes().exists(pid)) touch(true, mail.path, pid);
  }
  ASSERT_TRUE(save({mail, build}));
  const std::string text = *state_.read("touched.json");
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_TRUE(Journal::decode(text.substr(0, length)).empty()) << length;
  }
  for (std::size_t bit = 0; bit < text.size() * 8; ++bit) {
    std::string flipped = text;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    undo(Journal::decode(flipped));
  }
  EXPECT_FALSE(laptop_.processes().effects().empty());
  for (const ProcessEffect& effect : laptop_.processes().effects()) {
    EXPECT_TRUE(effect.pid == mail.pid || effect.pid == build.pid) << effect.pid;
  }
}

TEST_F(JournalTest, AFailedSaveLeavesTheListThatWasThere) {
  const Touched mail = touch(true), build = touch(false);
  ASSERT_TRUE(save({mail}));
  laptop_.files().setFull(true);
  EXPECT_FALSE(save({mail, build}));
  EXPECT_EQ(Journal::load(state_), std::vector{mail});
  EXPECT_TRUE(save({})) << "a full disk still lets go";
  laptop_.files().setFull(false);
  ASSERT_TRUE(save({mail}));
  laptop_.files().setReadOnly(laptop_.surroundings().stateFolder);
  EXPECT_FALSE(save({})) << "the file is still there";
}

TEST_F(JournalTest, AnOlderFormIsUndoneAndDeleted) {
  const Touched mail = touch(true), other = touch(true, "/b"), build = touch(false, "/usr/bin/make");
  put("paused", std::to_string(mail.pid) + "\t" + mail.path + "\n\n" + std::to_string(other.pid) + "\t/b\t/c\n" +
                    std::to_string(other.pid) + "\t/other\n" + std::to_string(other.pid) + "\n\t/b\n99999999999\t/b\n" +
                    std::to_string(laptop_.processes().self()) + "\t" + laptop_.surroundings().executable + "\n");
  put("slowed", std::to_string(build.pid) + "\t/usr/bin/make");
  Journal::undoLegacyFiles(laptop_.machine(), state_);
  EXPECT_EQ(laptop_.processes().effects(),
            (std::vector<ProcessEffect>{{Kind::resume, mail.pid, mail.start}, {Kind::normal, build.pid, build.start}}));
  EXPECT_FALSE(state_.exists("paused"));
  EXPECT_FALSE(state_.exists("slowed"));
}

TEST_F(JournalTest, AnOlderFormThatIsNotTextIsLeftAlone) {
  const Touched mail = touch(true);
  put("paused", std::to_string(mail.pid) + "\t" + mail.path + "\n\xFF");
  Journal::undoLegacyFiles(laptop_.machine(), state_);
  EXPECT_TRUE(laptop_.processes().effects().empty());
  EXPECT_TRUE(state_.exists("paused"));
}

TEST_F(JournalTest, TheSafetyRecordIsWholeOrNone) {
  EXPECT_EQ(Safety::load(state_), std::nullopt);
  const Safety accepted{false, 25};
  accepted.save(state_);
  laptop_.powerLoss();
  EXPECT_EQ(Safety::load(state_), accepted);
  for (const char* broken : {"", "[]", R"({"heatGuard":true})", R"({"batteryFloor":5})",
                             R"({"heatGuard":1,"batteryFloor":5})", R"({"heatGuard":true,"batteryFloor":"5"})"}) {
    put("safety.json", broken);
    EXPECT_EQ(Safety::load(state_), std::nullopt) << broken;
  }
  // A limit that the setting can't have would be put back for ever.
  put("safety.json", R"({"heatGuard":true,"batteryFloor":2147483648})");
  EXPECT_EQ(Safety::load(state_), (Safety{true, 80}));
}

}  // namespace
}  // namespace tovi
