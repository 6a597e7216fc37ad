#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

namespace fs = std::filesystem;

// Agents are looked for every ten seconds, give or take one.
constexpr auto kSeen = 12s;

// The whole working day of one agent: seen, at work, gone, its quiet time over.
void liveThrough(const std::string& kind, const std::string& name, const std::string& executable,
                 const std::string& script) {
  Stage stage;
  stage.configure({{"quietMinutes", 1}}, {kind});
  Process app = stage.startApp();
  const auto before = stage.status();
  for (const auto& other : before["watching"])
    if (other["name"] == name) GTEST_SKIP() << "a real " << name << " runs on this computer";
  ASSERT_FALSE(stage.sleepIsOff());
  ASSERT_FALSE(stage.hasState("hold"));

  Process agent = stage.startBusy(executable, script);
  ASSERT_TRUE(eventually(kSeen, [&] { return stage.sleepIsOff(); }));
  EXPECT_TRUE(stage.hasState("hold"));
  auto status = stage.status();
  EXPECT_EQ(status["reason"], name + " is working");
  EXPECT_EQ(status["status"], name + " is working · sleeps when closed");
  EXPECT_EQ(status["keeping_awake"], true);

  agent.signal(SIGKILL);
  agent.wait();
  const auto stopped = name + " stopped · sleeps in ";
  ASSERT_TRUE(eventually(15s, [&] {
    status = stage.status();
    return status.value("reason", "").starts_with(stopped);
  })) << status.dump(2);
  EXPECT_EQ(status["status"], status["reason"].get<std::string>() + " · sleeps when closed");
  EXPECT_TRUE(stage.sleepIsOff()) << "the quiet time isn't over";

  ASSERT_TRUE(eventually(90s, [&] { return !stage.sleepIsOff(); }));
  EXPECT_TRUE(eventually(2s, [&] { return !stage.hasState("hold"); }));
  EXPECT_EQ(stage.status()["status"], "Nothing running · sleeps when closed");
}

TEST(EndToEndAgents, WorkByExecutableNameKeepsTheLaptopAwakeUntilItsQuietTimeIsOver) {
  liveThrough("claude-code", "Claude Code", "claude", "busy.sh");
}

TEST(EndToEndAgents, WorkByScriptOfAnInterpreterKeepsTheLaptopAwakeUntilItsQuietTimeIsOver) {
  liveThrough("codex", "Codex", "node", "node_modules/@openai/codex/bin/codex.js");
}

TEST(EndToEndLid, ClosedLidPausesWhatMayWaitAndOpeningGivesItBack) {
  Stage stage;
  const auto bundle = stage.root() / "Applications/Exporter.app";
  fs::create_directories(bundle / "Contents/MacOS");
  const auto executable = bundle / "Contents/MacOS/Exporter";
  fs::copy_file(fs::canonical("/bin/sleep"), executable);
  Process exporter = stage.start(executable.string(), {"600"});
  const auto stateOf = [&] {
    const auto text = readFile("/proc/" + std::to_string(exporter.pid()) + "/stat");
    return text.substr(text.rfind(')') + 2, 1);
  };
  stage.laptop({{"applications",
                 {{{"name", "Exporter"},
                   {"bundleIdentifier", "com.example.exporter"},
                   {"path", bundle.string()},
                   {"pid", exporter.pid()},
                   {"regular", true}}}}});
  Process app = stage.startApp();
  ASSERT_EQ(stage.tovi({"rule", "Exporter", "pause"}).status, 0);
  ASSERT_EQ(stage.tovi({"hold"}).status, 0);

  stage.laptop({{"lid", "closed"}});
  ASSERT_TRUE(eventually(3s, [&] { return stateOf() == "T"; }));
  const auto journal = Json::parse(readFile(stage.state() / "touched.json"));
  ASSERT_EQ(journal.size(), 1u);
  EXPECT_EQ(journal[0]["pid"], exporter.pid());
  EXPECT_EQ(journal[0]["path"], executable.string());
  EXPECT_EQ(journal[0]["paused"], true);

  stage.laptop({{"lid", "open"}});
  EXPECT_TRUE(eventually(3s, [&] { return stateOf() != "T" && !stage.hasState("touched.json"); }));
  EXPECT_TRUE(stage.sleepIsOff()) << "the hold stands";
}

TEST(EndToEndLid, KilledApplicationIsCleanedUpAfterByTheWatchdog) {
  Stage stage;
  Process app = stage.startApp();
  ASSERT_EQ(stage.tovi({"hold"}).status, 0);
  ASSERT_TRUE(stage.sleepIsOff());
  ASSERT_TRUE(stage.heartBeats(app));
  EXPECT_EQ(stage.tovi({"watchdog"}).out, "alive\n");
  EXPECT_TRUE(stage.sleepIsOff());

  app.signal(SIGKILL);
  app.wait();
  EXPECT_EQ(stage.tovi({"watchdog"}).out, "restored\n");
  EXPECT_FALSE(stage.sleepIsOff());
  EXPECT_FALSE(stage.hasState("hold"));
}

}  // namespace
}  // namespace tovi::e2e
