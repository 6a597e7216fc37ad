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
    EXPECT_FALSE(stage.sleepIsOff() || stage.hasState("hold"));
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

TEST_F(EndToEndLimits, LetGoAndHoldAgain) {
  hold();
  stage.laptop({{"battery", batteryAt(12)}});
  expectBlocked("Battery at 12%");
  // A little above the limit is not enough once it was reached.
  stage.laptop({{"battery", batteryAt(17)}});
  expectBlocked("Battery at 17%");
  stage.laptop({{"battery", batteryAt(60)}});
  expectHoldingAgain();
  stage.configure({{"onlyOnPower", true}});
  expectBlocked("Only on power");
  stage.laptop({{"battery", batteryAt(60, true)}});
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

TEST_F(EndToEndLimits, WhatTheSystemRefusesIsToldUntilItWorks) {
  const auto setUp = [&](bool done) {
    stage.laptop({{"privileged", done}});
    EXPECT_TRUE(eventually(15s, [&] { return stage.status().value("setup_done", !done) == done; }));
  };
  setUp(false);
  EXPECT_EQ(stage.status()["status"], "Needs a one-time setup");
  const auto refused = stage.tovi({"hold"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "tovi: Tovi needs its one-time setup first. Open Tovi from the menu bar and click Continue.\n");
  EXPECT_FALSE(stage.sleepIsOff());
  setUp(true);

  stage.laptop({{"refuse", {"pmset -a disablesleep 1"}}});
  ASSERT_EQ(stage.tovi({"hold"}).status, 0);
  EXPECT_EQ(stage.status()["warning"],
            "macOS refused to switch sleep off, so closing the lid would sleep the Mac. Run Set Up again in Settings › "
            "About.");
  EXPECT_EQ(stage.status()["keeping_awake"], false);
  EXPECT_FALSE(stage.hasState("hold")) << "a marker without the switch";
  ASSERT_EQ(stage.tovi({"release"}).status, 0);

  stage.laptop({{"refuse", {"pmset -a disablesleep 0"}}});
  hold();
  ASSERT_EQ(stage.tovi({"release"}).status, 0);
  EXPECT_EQ(stage.status()["warning"], "Couldn't switch sleep back on yet; Tovi keeps trying.");
  EXPECT_TRUE(stage.hasState("hold")) << "sleep is off, and the watchdog must know";
  stage.laptop({{"refuse", Json::array()}});
  EXPECT_TRUE(eventually(6s, [&] { return !stage.sleepIsOff() && !stage.hasState("hold"); }));
  EXPECT_FALSE(stage.status().contains("warning"));
}

}  // namespace
}  // namespace tovi::e2e
