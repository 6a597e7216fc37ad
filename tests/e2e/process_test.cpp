#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

namespace fs = std::filesystem;

unsigned modeOf(const fs::path& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777u : 0u;
}

TEST(EndToEndProcess, TerminationGivesEverythingBack) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Stage stage;
    Process app = stage.startApp();
    ASSERT_EQ(stage.tovi({"hold"}).status, 0);
    stage.laptop({{"lid", "closed"}});
    ASSERT_TRUE(eventually(3s, [&] { return stage.switchIs("displayAssertion", true); }));
    app.signal(signal);
    EXPECT_EQ(app.wait(), 0) << signal;
    EXPECT_FALSE(stage.sleepIsOff());
    EXPECT_TRUE(stage.switchIs("displayAssertion", false));
    for (const char* name : {"hold", "touched.json", "powermode-restore", "brightness-restore", "display-off"})
      EXPECT_FALSE(stage.hasState(name)) << name;
  }
}

TEST(EndToEndProcess, BrokenPipeDoesNotEndIt) {
  Stage stage;
  Process app = stage.startApp();
  app.signal(SIGPIPE);
  EXPECT_TRUE(stage.ask("config").is_object());
  EXPECT_TRUE(app.runs());
}

TEST(EndToEndProcess, SecondCopyTouchesNothingOfTheFirst) {
  Stage stage;
  Process app = stage.startApp();
  ASSERT_EQ(stage.tovi({"hold", "--reason", "training"}).status, 0);
  const auto log = stage.commandLog();
  Process second = stage.startAppUnawaited();
  const auto alive = readFile(stage.state() / "alive");
  ASSERT_TRUE(eventually(6s, [&] { return readFile(stage.state() / "alive") != alive; }));
  second.signal(SIGTERM);
  EXPECT_EQ(second.wait(), 0);

  EXPECT_TRUE(stage.sleepIsOff());
  EXPECT_TRUE(stage.hasState("hold"));
  EXPECT_EQ(stage.status()["reason"], "training") << "the first copy answers";
  const auto heart = readFile(stage.state() / "alive");
  EXPECT_NE(heart.find(" " + std::to_string(app.pid()) + " "), std::string::npos) << heart;
}

TEST(EndToEndProcess, QuitAnswersBeforeItGoes) {
  Stage stage;
  Process app = stage.startApp();
  EXPECT_EQ(stage.ask("quit"), Json({{"ok", true}}));
  EXPECT_EQ(app.wait(), 0);
}

TEST(EndToEndProcess, RescuePutsBackWhatAStuckApplicationHolds) {
  Stage stage;
  Process app = stage.startApp();
  ASSERT_EQ(stage.tovi({"hold"}).status, 0);
  ASSERT_TRUE(stage.heartBeats(app));
  app.signal(SIGSTOP);
  const auto outcome = stage.tovi({"rescue"}, 60s);
  EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.out,
            "Everything Tovi changed is back to how it was. Tovi is stopped; open it again when you want it.\n");
  EXPECT_FALSE(stage.sleepIsOff());
  EXPECT_FALSE(stage.hasState("hold"));
}

TEST(EndToEndWire, RepliesAreForThePersonAlone) {
  Stage stage;
  Process app = stage.startApp();
  stage.post(R"({"id": "left-behind", "cmd": "config"})");
  const auto reply = stage.replies() / "left-behind.json";
  ASSERT_TRUE(eventually(5s, [&] { return fs::exists(reply); }));
  EXPECT_EQ(modeOf(reply), 0600u);
  EXPECT_EQ(modeOf(stage.replies()), 0700u);
  EXPECT_EQ(modeOf(stage.root() / "run/tovi"), 0700u);
}

TEST(EndToEndWire, RequestsWithoutAGoodNameGetNoAnswer) {
  Stage stage;
  Process app = stage.startApp();
  const auto listing = [&] {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(stage.replies())) names.push_back(entry.path().filename());
    return names;
  };
  const auto before = listing();
  for (const std::string& id :
       {std::string("../escaped"), std::string("a/b"), std::string("a.b"), std::string(), std::string(65, 'a')})
    stage.post(Json{{"id", id}, {"cmd", "config"}, {"args", Json::object()}}.dump());
  for (const char* text : {R"({"cmd": "config"})", R"({"id": 7, "cmd": "config"})", R"({"id": "no-command"})", "[1]",
                           "no json", "", "\xff\xfe"})
    stage.post(text);
  // They are taken in order, so that all are dealt with when this one is answered.
  ASSERT_TRUE(stage.ask("config").is_object());
  EXPECT_EQ(listing(), before);
  EXPECT_FALSE(stage.hasState("escaped.json"));

  stage.post(Json{{"id", std::string(64, 'a')}, {"cmd", "config"}, {"args", Json::array()}}.dump());
  EXPECT_TRUE(eventually(5s, [&] { return fs::exists(stage.replies() / (std::string(64, 'a') + ".json")); }));
}

TEST(EndToEndWire, HugeRequestIsTakenOrRefusedAtOnce) {
  Stage stage;
  Process app = stage.startApp();
  // Control characters take six bytes each in a request; the system allows twice its limit for one message.
  const auto outcome = stage.tovi({"hold", "--reason", std::string(100'000, '\x01')});
  EXPECT_LT(outcome.took, 5s);
  if (2 * std::stol(readFile("/proc/sys/net/core/wmem_max")) < 600'000) {
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "tovi: That request is too large to send to Tovi.\n");
    EXPECT_FALSE(stage.sleepIsOff());
  } else {
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(stage.status()["holds"][0]["reason"], std::string(80, '\x01'));
  }
}

TEST(EndToEndWire, UnknownCommandsAreNamed) {
  Stage stage;
  Process app = stage.startApp();
  EXPECT_EQ(stage.ask("fly"), Json({{"ok", false}, {"error", "Unknown command fly"}}));
}

TEST(EndToEndTool, WorksWithoutTheApplication) {
  Stage stage;
  for (const char* word : {"help", "-h", "--help"})
    EXPECT_TRUE(stage.tovi({word}).out.starts_with("tovi: keep your Mac"));
  const auto unknown = stage.tovi({"fly"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_TRUE(unknown.out.starts_with("Unknown command 'fly'.\n\ntovi: keep your Mac"));
  const auto doctor = stage.tovi({"doctor"});
  EXPECT_EQ(doctor.status, 0);
  for (const char* line : {"App: not running\n", "Watchdog: running\n", "Sleep permission: set up\n",
                           "Changes Tovi has made right now: none\n"})
    EXPECT_NE(doctor.out.find(line), std::string::npos) << line << doctor.out;
}

}  // namespace
}  // namespace tovi::e2e
