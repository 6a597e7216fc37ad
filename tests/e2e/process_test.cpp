#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

TEST(EndToEndProcess, TerminationWithTheLidClosedGivesEverythingBack) {
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

TEST(EndToEndProcess, ABrokenPipeDoesNotEndItAndQuitAnswersBeforeItGoes) {
  Stage stage;
  Process app = stage.startApp();
  app.signal(SIGPIPE);
  EXPECT_EQ(stage.ask("quit"), Json({{"ok", true}}));
  EXPECT_EQ(app.wait(), 0);
}

// What a person runs when something is wrong, in every condition that the application can be in.
TEST(EndToEndProcess, DoctorAndRescueHelpWhateverBecameOfTheApplication) {
  constexpr char kWhole[] =
      "Everything Tovi changed is back to how it was. Tovi is stopped; open it again when you want it.\n";
  enum class Condition { neverStarted, alive, stuck, dead };
  for (const Condition condition : {Condition::neverStarted, Condition::alive, Condition::stuck, Condition::dead}) {
    SCOPED_TRACE(static_cast<int>(condition));
    Stage stage;
    std::optional<Process> app;
    if (condition != Condition::neverStarted) {
      app.emplace(stage.startApp());
      ASSERT_EQ(stage.tovi({"hold", "--reason", "training"}).status, 0);
      ASSERT_TRUE(stage.heartBeats(*app));
    }
    if (condition == Condition::alive) {
      EXPECT_EQ(stage.tovi({"watchdog"}).out, "alive\n");
    }
    if (condition == Condition::stuck) app->signal(SIGSTOP);
    if (condition == Condition::dead) {
      app->signal(SIGKILL);
      app->wait();
    }
    const bool beats = condition == Condition::alive || condition == Condition::stuck;
    const bool holds = condition != Condition::neverStarted;
    std::string text =
        "Tovi folder: " + stage.state().string() + "\nApp: " + (beats ? "running" : "not running") +
        "\nWatchdog: running\nSleep permission: set up\nSleep switched off right now: " + (holds ? "true" : "false") +
        "\nChanges Tovi has made right now:" + (holds ? "\n  sleep is switched off (pmset disablesleep 1)" : " none") +
        "\n";
    if (condition == Condition::alive) text += "Status: training · sleeps when closed\n";
    const auto doctor = stage.tovi({"doctor"}, 60s);
    EXPECT_EQ(doctor.status, 0);
    EXPECT_EQ(doctor.out, text);
    EXPECT_EQ(doctor.err, "");

    const auto rescue = stage.tovi({"rescue"}, 60s);
    EXPECT_EQ(rescue.status, 0) << rescue.err;
    EXPECT_EQ(rescue.out, kWhole);
    EXPECT_FALSE(stage.sleepIsOff());
    EXPECT_FALSE(stage.hasState("hold"));
    if (condition == Condition::alive) {
      EXPECT_EQ(app->wait(), 0);
    }
    if (condition == Condition::stuck) continue;  // it is waited for again, in vain
    EXPECT_EQ(stage.tovi({"rescue"}, 60s).out, kWhole) << "a second time there is nothing to do";
    EXPECT_NE(stage.tovi({"doctor"}, 60s).out.find("Changes Tovi has made right now: none\n"), std::string::npos);
  }
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

}  // namespace
}  // namespace tovi::e2e
