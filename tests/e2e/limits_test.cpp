#include <gtest/gtest.h>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

Json batteryAt(int percent, bool charger = false) {
  return {{"CurrentCapacity", percent}, {"MaxCapacity", 100},           {"InstantAmperage", charger ? 0 : -500},
          {"Voltage", 12000},           {"ExternalConnected", charger}, {"IsCharging", false}};
}

class EndToEndLimits : public testing::Test {
 protected:
  Stage stage;
  Process app = stage.startApp();

  void hold() {
    ASSERT_EQ(stage.tovi({"hold", "--reason", "training"}).status, 0);
    ASSERT_TRUE(stage.sleepIsOff());
  }

  // Sleep goes on again and the status says why.
  void expectBlocked(const std::string& why) {
    Json status;
    EXPECT_TRUE(eventually(15s, [&] {
      status = stage.status();
      return status.is_object() && status.value("blocked_by", "") == why;
    })) << status.dump(2);
    EXPECT_EQ(status["status"], why + ", sleeps when closed");
    EXPECT_EQ(status["keeping_awake"], false);
    EXPECT_FALSE(stage.sleepIsOff());
    EXPECT_FALSE(stage.hasState("hold"));
  }

  void expectHoldingAgain() {
    Json status;
    EXPECT_TRUE(eventually(15s, [&] {
      status = stage.status();
      return status.is_object() && status.value("keeping_awake", false);
    })) << status.dump(2);
    EXPECT_FALSE(status.contains("blocked_by"));
    EXPECT_EQ(status["reason"], "training");
    EXPECT_TRUE(stage.sleepIsOff());
  }
};

TEST_F(EndToEndLimits, BatteryLimit) {
  hold();
  stage.laptop({{"battery", batteryAt(12)}});
  expectBlocked("Battery at 12%");
  // A little above the limit is not enough once it was reached.
  stage.laptop({{"battery", batteryAt(17)}});
  expectBlocked("Battery at 17%");
  stage.laptop({{"battery", batteryAt(60)}});
  expectHoldingAgain();
}

TEST_F(EndToEndLimits, HeatWithTheLidClosed) {
  hold();
  stage.laptop({{"lid", "closed"}});
  ASSERT_TRUE(eventually(3s, [&] { return stage.switchIs("displayAssertion", true); }));
  stage.laptop({{"thermal", 3}});
  expectBlocked("Too hot");
  EXPECT_TRUE(stage.switchIs("asleep", true)) << "let go with the lid closed, it sleeps";
  stage.laptop({{"lid", "open"}, {"thermal", 0}, {"events", {{"poweredOn", 1}, {"didWake", 1}}}});
  expectHoldingAgain();
}

TEST_F(EndToEndLimits, OnlyOnPower) {
  hold();
  stage.configure({{"onlyOnPower", true}});
  expectBlocked("Only on power");
  stage.laptop({{"battery", batteryAt(60, true)}});
  expectHoldingAgain();
}

TEST_F(EndToEndLimits, SetupMissing) {
  stage.laptop({{"privileged", false}});
  Json status;
  ASSERT_TRUE(eventually(15s, [&] {
    status = stage.status();
    return status.is_object() && !status.value("setup_done", true);
  }));
  EXPECT_EQ(stage.status()["status"], "Needs a one-time setup");
  const auto refused = stage.tovi({"hold"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "tovi: Tovi needs its one-time setup first. Open Tovi from the menu bar and click Continue.\n");
  EXPECT_FALSE(stage.sleepIsOff());

  stage.laptop({{"privileged", true}});
  ASSERT_TRUE(eventually(15s, [&] {
    status = stage.status();
    return status.is_object() && status.value("setup_done", false);
  }));
  hold();
}

TEST_F(EndToEndLimits, RefusedSwitch) {
  stage.laptop({{"refuse", {"pmset -a disablesleep 1"}}});
  ASSERT_EQ(stage.tovi({"hold", "--reason", "training"}).status, 0);
  auto status = stage.status();
  EXPECT_EQ(status["warning"],
            "macOS refused to switch sleep off, so closing the lid would sleep the Mac. Run Set Up again in Settings › "
            "About.");
  EXPECT_EQ(status["keeping_awake"], false);
  EXPECT_FALSE(stage.hasState("hold")) << "a marker without the switch";

  stage.laptop({{"refuse", Json::array()}});
  ASSERT_TRUE(eventually(40s, [&] { return stage.sleepIsOff(); })) << "it is tried again after half a minute";
  status = stage.status();
  EXPECT_EQ(status["keeping_awake"], true);
  EXPECT_FALSE(status.contains("warning"));
}

TEST_F(EndToEndLimits, SwitchBackThatIsRefusedIsTriedUntilItWorks) {
  hold();
  stage.laptop({{"refuse", {"pmset -a disablesleep 0"}}});
  ASSERT_EQ(stage.tovi({"release"}).status, 0);
  EXPECT_EQ(stage.status()["warning"], "Couldn't switch sleep back on yet; Tovi keeps trying.");
  EXPECT_TRUE(stage.hasState("hold")) << "sleep is off, and the watchdog must know";
  stage.laptop({{"refuse", Json::array()}});
  EXPECT_TRUE(eventually(6s, [&] { return !stage.sleepIsOff() && !stage.hasState("hold"); }));
  EXPECT_FALSE(stage.status().contains("warning"));
}

TEST_F(EndToEndLimits, NoMarkerNoSwitch) {
  stage.configure({{"customAgents", stage.customAgent()}});
  ASSERT_TRUE(eventually(5s, [&] { return !stage.ask("config")["config"]["customAgents"].empty(); }));
  const auto state = stage.state();
  const auto away = state.string() + ".away";
  std::filesystem::rename(state, away);
  writeFile(state, "no folder");
  Process agent = stage.startCustomAgent();
  EXPECT_FALSE(eventually(13s, [&] { return stage.sleepIsOff(); }));
  EXPECT_EQ(stage.commandLog().find("sudo -n /usr/bin/pmset -a disablesleep 1"), std::string::npos);
  EXPECT_TRUE(app.runs());

  // It had seen the agent all along: with the folder back it needs no new look at the processes.
  std::filesystem::remove(state);
  std::filesystem::rename(away, state);
  EXPECT_TRUE(eventually(4s, [&] { return stage.sleepIsOff(); }));
  EXPECT_TRUE(stage.hasState("hold"));
}

}  // namespace
}  // namespace tovi::e2e
