#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

class EndToEndHolds : public testing::Test {
 protected:
  Stage stage;
  Process app = stage.startApp();

  Json holds() { return stage.status()["holds"]; }
};

TEST_F(EndToEndHolds, HoldWithATimeAndAReasonIsShownAndReleased) {
  for (const char* text : {"0", "30d", "soon"}) {
    const auto outcome = stage.tovi({"hold", "--for", text});
    EXPECT_EQ(outcome.status, 2) << text;
    EXPECT_EQ(outcome.out, "tovi: --for needs a duration like 90m, 2h or 1h30m\n") << text;
  }
  EXPECT_FALSE(stage.sleepIsOff());

  auto outcome = stage.tovi({"hold", "--for", "90m", "--reason", "training"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(stage.sleepIsOff() && stage.hasState("hold"));
  ASSERT_EQ(stage.tovi({"hold", "--reason", "two"}).status, 0);
  const auto list = holds();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0]["reason"], "training");
  EXPECT_TRUE(list[0].contains("until") && !list[0].contains("pid"));

  outcome = stage.tovi({"release", list[0]["id"].get<std::string>()});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.out.find("released 1"), std::string::npos) << outcome.out;
  EXPECT_EQ(stage.status()["reason"], "two");
  EXPECT_TRUE(stage.sleepIsOff());
  EXPECT_NE(stage.tovi({"release"}).out.find("released 1"), std::string::npos);
  EXPECT_FALSE(stage.sleepIsOff() || stage.hasState("hold"));
}

TEST_F(EndToEndHolds, HoldEndsWithItsProcessOrItsOwner) {
  Process bound = stage.startIdle();
  Process owner = stage.startIdle();
  const auto end = [](Process& process) {
    process.signal(SIGKILL);
    process.wait();
  };
  ASSERT_EQ(stage.tovi({"hold", "--pid", std::to_string(bound.pid())}).status, 0);
  stage.ask("hold", {{"reason", "mine"}, {"owner", owner.pid()}});
  end(bound);
  EXPECT_TRUE(eventually(6s, [&] { return holds().size() == 1; }));
  EXPECT_TRUE(stage.sleepIsOff());
  end(owner);
  EXPECT_TRUE(eventually(6s, [&] { return !stage.sleepIsOff(); }));
  EXPECT_TRUE(holds().empty());

  const auto refused = stage.tovi({"hold", "--pid", std::to_string(bound.pid())});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "tovi: pid must be a running process id\n");
}

TEST_F(EndToEndHolds, HoldsOutliveTheApplication) {
  ASSERT_EQ(stage.tovi({"hold", "--for", "90m", "--reason", "overnight"}).status, 0);
  app.signal(SIGTERM);
  EXPECT_EQ(app.wait(), 0);
  EXPECT_FALSE(stage.sleepIsOff());
  Process again = stage.startApp();
  EXPECT_TRUE(eventually(5s, [&] { return stage.sleepIsOff(); }));
  EXPECT_EQ(stage.status()["reason"], "overnight");
}

TEST_F(EndToEndHolds, RunHoldsWhileItsCommandRunsAndPassesItsStatusOn) {
  const std::string script = "while [ ! -e stop ]; do sleep 0.05; done; exit 7";
  Process run = stage.startTovi({"run", "--", "sh", "-c", script});
  ASSERT_TRUE(eventually(10s, [&] { return stage.sleepIsOff(); }));
  // The hold ends up with the child, so that it goes with it even if the wrapper is killed.
  Json list;
  ASSERT_TRUE(eventually(10s, [&] {
    list = stage.status()["holds"];
    return list.size() == 1 && list[0]["pid"] != run.pid();
  })) << list;
  EXPECT_EQ(list[0]["reason"], "Running sh");
  writeFile(stage.root() / "stop", "");
  EXPECT_EQ(run.wait(), 7);
  EXPECT_FALSE(stage.sleepIsOff());
}

TEST_F(EndToEndHolds, HoldOfACommandOutlivesTheWrapper) {
  Process run = stage.startTovi({"run", "--reason", "long build", "--", "sh", "-c", "echo $$ > child; exec sleep 600"});
  ASSERT_TRUE(eventually(10s, [&] {
    const auto list = stage.status()["holds"];
    return list.size() == 1 && list[0]["pid"] != run.pid();
  }));
  const pid_t child = std::stoi(readFile(stage.root() / "child"));
  const auto end = [](const pid_t* pid) { ::kill(*pid, SIGKILL); };
  std::unique_ptr<const pid_t, decltype(end)> atTheEnd(&child, end);
  run.signal(SIGKILL);
  run.wait();
  const auto list = holds();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0]["pid"], child);
  atTheEnd.reset();
  EXPECT_TRUE(eventually(6s, [&] { return !stage.sleepIsOff(); }));
}

TEST_F(EndToEndHolds, RunTellsOfSignalsAndOfCommandsThatCannotStart) {
  EXPECT_EQ(stage.tovi({"run", "--", "sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
  EXPECT_EQ(stage.tovi({"run", "--", "sh", "-c", "kill -TERM $$"}).status, 128 + SIGTERM);
  EXPECT_EQ(stage.tovi({"run", "--", "/nonexistent/command"}).status, 127);
  const auto usage = stage.tovi({"run"});
  EXPECT_EQ(usage.status, 2);
  EXPECT_EQ(usage.out, "tovi run [--reason text] -- <command> [args…]\n");
  EXPECT_TRUE(holds().empty());
}

// As a shell starts its background jobs: the keyboard's interrupts are none of theirs.
TEST_F(EndToEndHolds, RunKeepsIgnoringWhatItsStarterIgnored) {
  const std::vector<std::string> words{"run", "--", "grep", "SigIgn", "/proc/self/status"};
  EXPECT_TRUE(stage.tovi(words).out.ends_with("0\n"));
  ::signal(SIGINT, SIG_IGN);
  EXPECT_TRUE(stage.tovi(words).out.ends_with("2\n")) << "the bit of SIGINT";
  ::signal(SIGINT, SIG_DFL);
}

TEST(EndToEndWithoutTheApplication, RunStillRunsItsCommand) {
  Stage stage;
  const auto outcome = stage.tovi({"run", "--", "sh", "-c", "echo done; exit 3"}, 60s);
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.out, "done\n");
  EXPECT_TRUE(outcome.err.starts_with("tovi: ") && outcome.err.ends_with(" (running anyway)\n")) << outcome.err;
  EXPECT_FALSE(stage.sleepIsOff());
}

}  // namespace
}  // namespace tovi::e2e
