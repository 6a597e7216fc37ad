#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

// Agents are looked for every ten seconds, give or take one.
constexpr auto kSeen = 12s;

// The whole working day: one known by the script that its interpreter runs, then one known by its own name; seen, at
// work, gone, its quiet time over.
TEST(EndToEndAgents, WorkKeepsTheLaptopAwakeUntilItsQuietTimeIsOver) {
  Stage stage;
  stage.configure({{"quietMinutes", 1}}, {"claude-code", "codex"});
  Process app = stage.startApp();
  if (!stage.status()["watching"].empty()) GTEST_SKIP() << "real agents run on this computer";
  ASSERT_FALSE(stage.sleepIsOff() || stage.hasState("hold"));
  {
    Process codex = stage.startBusy("node", "node_modules/@openai/codex/bin/codex.js");
    ASSERT_TRUE(eventually(kSeen, [&] { return stage.sleepIsOff(); }));
    EXPECT_EQ(stage.status()["reason"], "Codex is working");
  }
  Process claude = stage.startBusy("claude");
  Json status;
  ASSERT_TRUE(eventually(kSeen, [&] { return (status = stage.status())["reason"] == "Claude Code is working"; }));
  EXPECT_TRUE(stage.sleepIsOff() && stage.hasState("hold"));
  EXPECT_EQ(status["status"], "Claude Code is working · sleeps when closed");
  EXPECT_EQ(status["keeping_awake"], true);

  claude.signal(SIGKILL);
  claude.wait();
  ASSERT_TRUE(eventually(15s, [&] {
    status = stage.status();
    return status.value("reason", "").starts_with("Claude Code stopped · sleeps in ");
  })) << status.dump(2);
  EXPECT_EQ(status["status"], status["reason"].get<std::string>() + " · sleeps when closed");
  EXPECT_TRUE(stage.sleepIsOff()) << "the quiet time isn't over";

  ASSERT_TRUE(eventually(90s, [&] { return !stage.sleepIsOff(); }));
  EXPECT_TRUE(eventually(2s, [&] { return !stage.hasState("hold"); }));
  EXPECT_EQ(stage.status()["status"], "Nothing running · sleeps when closed");
}

}  // namespace
}  // namespace tovi::e2e
