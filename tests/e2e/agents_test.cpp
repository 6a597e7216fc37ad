#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

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

}  // namespace
}  // namespace tovi::e2e
