// Markers and requests whose files could not be written or removed when they should have been.

#include <gtest/gtest.h>

#include "engine/World.h"

namespace tovi {
namespace {

struct MarkerTest : testing::Test, World {
  MarkerTest() { start().addHold("training", {}, {}, {}); }
};

TEST_F(MarkerTest, OneThatCouldNotBeRemovedGoesLater) {
  laptop.files().setReadOnly(state.dir());
  engine().releaseHold({});
  laptop.advance(30);
  EXPECT_TRUE(marker());
  laptop.files().setReadOnly(state.dir(), false);
  laptop.advance(12);
  EXPECT_TRUE(holds(false));
}

// Or sleep would be off without it afterwards.
TEST_F(MarkerTest, OneThatIsWrittenSurvivesALossOfPowerWhateverFailsOnce) {
  engine().releaseHold({});
  for (int at = 0; at < 12; ++at) {
    laptop.faults().failOperation(laptop.faults().operations() + 1 + at);
    engine().addHold("more", {}, {}, {});
    laptop.faults().forgetOrders();
    const bool off = sleepOff();
    owned.reset();
    laptop.powerLoss();
    EXPECT_TRUE(marker() || !off) << "operation " << at;
    laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });
    laptop.files().erase(state.path("hold"));
    start();
  }
}

// Or it would come back with the next start.
TEST_F(MarkerTest, AReleaseThatCouldNotBeSavedIsSavedLater) {
  laptop.files().setFull(true);
  engine().releaseHold({});
  laptop.advance(20);
  laptop.files().setFull(false);
  laptop.advance(12);
  EXPECT_TRUE(crashAndRestart().holds->empty());
}

}  // namespace
}  // namespace tovi
