#include "platform/simulated/LaptopDisplays.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class LaptopScreens : public testing::Test {
 protected:
  MemoryLaptop laptop;
  Displays& displays = laptop.machine().displays;

  int switchDisplay(std::uint32_t id, bool enabled) {
    displays.beginConfiguration();
    const int code = displays.setEnabled(id, enabled);
    if (code == 0) return displays.completeConfiguration();
    displays.cancelConfiguration();
    return code;
  }
};

TEST_F(LaptopScreens, ASwitchedOffScreenIsMissingAndAClosedLidTakesNoneAway) {
  laptop.edit([](LaptopReport& report) {
    report.displays = {{1, true}, {2, false}};
    report.lid = LaptopLid::closed;
  });
  EXPECT_EQ(displays.online(), (std::vector<Display>{{1, true}, {2, false}}));
  EXPECT_EQ(switchDisplay(1, false), 0);
  EXPECT_EQ(displays.online(), (std::vector<Display>{{2, false}}));
  EXPECT_FALSE(displays.brightness(1)) << "a screen that is off tells nothing";
  EXPECT_EQ(switchDisplay(1, true), 0);
  EXPECT_EQ(displays.online().size(), 2u);
}

TEST_F(LaptopScreens, NothingSwitchesBeforeTheTransactionCompletes) {
  EXPECT_NE(displays.setEnabled(1, false), 0) << "there is none yet";
  ASSERT_TRUE(displays.beginConfiguration());
  EXPECT_FALSE(displays.beginConfiguration()) << "one at a time";
  EXPECT_EQ(displays.setEnabled(1, false), 0);
  EXPECT_EQ(displays.online().size(), 1u);
  displays.cancelConfiguration();
  EXPECT_NE(displays.completeConfiguration(), 0);
  EXPECT_EQ(displays.online().size(), 1u);
  ASSERT_TRUE(displays.beginConfiguration());
  EXPECT_EQ(displays.completeConfiguration(), 0) << "an empty one is allowed";
}

TEST_F(LaptopScreens, FailuresArePlayedByName) {
  laptop.edit([](LaptopReport& report) { report.refuse = {"display 1 off", "brightness 1"}; });
  EXPECT_EQ(switchDisplay(1, false), LaptopDisplays::kFailure);
  EXPECT_EQ(switchDisplay(1, true), 0);
  EXPECT_EQ(displays.setBrightness(1, 0.0f), LaptopDisplays::kFailure);
  EXPECT_EQ(displays.brightness(1), 0.8f);
  EXPECT_EQ(switchDisplay(9, false), LaptopDisplays::kNoSuchDisplay);
  laptop.edit([](LaptopReport& report) { report.refuse = {"display-assertion"}; });
  EXPECT_EQ(laptop.machine().assertions.holdDisplayAwake("x"), 0u);
  EXPECT_EQ(laptop.faults().operations(), 0);
}

TEST_F(LaptopScreens, BrightnessIsWrittenAsPeopleWouldWriteIt) {
  EXPECT_EQ(displays.setBrightness(1, 0.3f), 0);
  EXPECT_EQ(laptop.switches().display(1).brightness, 0.3);
  EXPECT_EQ(displays.brightness(1), 0.3f);
  EXPECT_EQ(displays.setBrightness(1, 7.0f), 0);
  EXPECT_EQ(displays.brightness(1), 1.0f);
  EXPECT_NE(displays.setBrightness(1, std::nanf("")), 0);
  laptop.edit([](LaptopReport& report) { report.displays = {{5, false}}; });
  EXPECT_NE(displays.setBrightness(5, 0.5f), 0) << "only the built-in screen can be dimmed";
}

TEST_F(LaptopScreens, TheLastAssertionLetsTheScreenSleep) {
  Assertions& assertions = laptop.machine().assertions;
  const auto first = assertions.holdDisplayAwake("a");
  const auto second = assertions.holdDisplayAwake("b");
  ASSERT_NE(first, second);
  assertions.release(first);
  assertions.release(first);
  EXPECT_TRUE(laptop.switches().displayAssertion);
  assertions.release(second);
  EXPECT_FALSE(laptop.switches().displayAssertion);
}

}  // namespace
}  // namespace tovi
