#include "observe/SystemSwitches.h"

#include <gtest/gtest.h>

#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Setting = PowerMode::Setting;

TEST(PowerModeText, TakesTheBatterysOwnLine) {
  const std::pair<const char*, std::optional<Setting>> cases[] = {
      {"Battery Power:\n lowpowermode         0\nAC Power:\n lowpowermode 1\n", Setting{"lowpowermode", 0}},
      {"AC Power:\n powermode 2\nBattery Power:\n sleep 1\n powermode 1\n", Setting{"powermode", 1}},
      {"Battery Power:\n sleep 1\nAC Power:\n powermode 2\n", std::nullopt},
      {"  Battery Power:\r\n\r\n\tpowermode\t2 (set)\r\n", Setting{"powermode", 2}},
      {"Battery Power:\n lowpowermode\n powermode on\n lowpowermode 0x1\n powermode 1\n", Setting{"powermode", 1}},
      {"Battery Power:\n powermode 99999999999999999999\n", std::nullopt},
      {" lowpowermode 0\n", std::nullopt},
      {"UPS Power:\n powermode 1\n", std::nullopt},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(PowerMode::parseBattery(text), expected) << text;
}

class Switches : public testing::Test {
 protected:
  MemoryLaptop laptop_;
  StateFiles state_{laptop_.machine()};

  void setLow() { PowerMode::setLow(laptop_.machine(), state_); }
  bool restore() { return PowerMode::restore(laptop_.machine(), state_); }
  void pause() { TimeMachine::pause(laptop_.machine(), state_); }
  bool resume() { return TimeMachine::resume(laptop_.machine(), state_); }
  int batteryMode() { return laptop_.switches().batteryMode.begin()->second; }
};

TEST_F(Switches, LowPowerGoesBackToWhatItWas) {
  laptop_.setSwitches([](LaptopSwitches& switches) { switches.batteryMode = {{"powermode", 2}}; });
  setLow();
  EXPECT_EQ(batteryMode(), 1);
  EXPECT_EQ(state_.read("powermode-restore"), "powermode 2");
  setLow();  // reads 1 by now, which must not become the value to go back to
  EXPECT_EQ(state_.read("powermode-restore"), "powermode 2");
  laptop_.setSwitches([](LaptopSwitches& switches) { switches.batteryMode = {{"powermode", 0}}; });
  setLow();
  EXPECT_EQ(state_.read("powermode-restore"), "powermode 2") << "somebody switched meanwhile";
  EXPECT_TRUE(restore());
  EXPECT_EQ(batteryMode(), 2);
  EXPECT_FALSE(PowerMode::lowSet(state_));
  for (const LaptopSwitches::Modes& modes : {LaptopSwitches::Modes{}, {{"lowpowermode", 1}}}) {
    laptop_.setSwitches([&](LaptopSwitches& switches) { switches.batteryMode = modes; });
    setLow();
    EXPECT_FALSE(PowerMode::lowSet(state_)) << "no setting, or the person's own";
    EXPECT_TRUE(restore());
    EXPECT_EQ(laptop_.switches().batteryMode, modes);
  }
}

TEST_F(Switches, ARefusalLeavesNoFileAndARefusedReturnKeepsItOverALossOfPower) {
  const auto refuse = [&](std::vector<std::string> commands) {
    laptop_.edit([&](LaptopReport& report) { report.refuse = std::move(commands); });
  };
  refuse({"pmset -b", "tmutil"});
  setLow();
  pause();
  EXPECT_FALSE(PowerMode::lowSet(state_) || TimeMachine::paused(state_));
  refuse({});
  setLow();
  pause();
  refuse({"pmset -b", "tmutil"});
  EXPECT_FALSE(restore() || resume());
  laptop_.powerLoss();
  EXPECT_TRUE(PowerMode::lowSet(state_) && TimeMachine::paused(state_));
  refuse({});
  EXPECT_TRUE(restore() && resume());
  EXPECT_EQ(batteryMode(), 0);
  EXPECT_TRUE(laptop_.switches().autoBackup);
  EXPECT_FALSE(PowerMode::lowSet(state_) || TimeMachine::paused(state_));
}

TEST_F(Switches, AnUnreadableFormIsDroppedWithoutACommand) {
  for (const char* content : {"lowpowermode", "", "  ", "lowpowermode 0 1"}) {
    laptop_.files().put(state_.path("powermode-restore"), content);
    EXPECT_TRUE(restore() && !PowerMode::lowSet(state_)) << content;
  }
  EXPECT_TRUE(laptop_.commands().empty());
}

TEST_F(Switches, NothingIsSwitchedThatCannotBeRecorded) {
  state_.dir();
  laptop_.files().setReadOnly(laptop_.surroundings().stateFolder);
  setLow();
  pause();
  EXPECT_EQ(batteryMode(), 0);
  EXPECT_TRUE(laptop_.switches().autoBackup);
}

TEST_F(Switches, BackupsThatWereOffAreNotSwitchedOnAfterwards) {
  laptop_.setSwitches([](LaptopSwitches& switches) { switches.autoBackup = false; });
  pause();
  EXPECT_FALSE(TimeMachine::paused(state_));
  EXPECT_TRUE(resume()) << "nothing to undo";
  EXPECT_FALSE(laptop_.switches().autoBackup);
  laptop_.setSwitches([](LaptopSwitches& switches) { switches.autoBackup = true; });
  pause();
  EXPECT_FALSE(laptop_.switches().autoBackup);
  pause();
  EXPECT_EQ(laptop_.commandCount("/usr/bin/sudo -n /usr/bin/tmutil disable"), 1u);
}

TEST(BuildToolNames, AreWholeNames) {
  for (const char* name : {"clang++", "XCBBuildService", "g++", "ld"}) EXPECT_TRUE(BuildTools::contains(name)) << name;
  for (const char* name : {"", "clang-format", "Make", "ld65", "gcc-12"}) {
    EXPECT_FALSE(BuildTools::contains(name)) << name;
  }
}

}  // namespace
}  // namespace tovi
