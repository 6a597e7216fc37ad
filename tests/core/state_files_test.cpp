#include "core/StateFiles.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

struct StateFilesTest : testing::Test {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  std::string target = state.path("touched.json");

  std::vector<std::string> names() { return laptop.files().list(state.dir()).value_or(std::vector<std::string>{}); }
};

TEST_F(StateFilesTest, AFailureAtAnyStepLeavesTheOldFileAndNothingElse) {
  ASSERT_TRUE(state.writeDurably("old", target));
  const auto before = laptop.faults().operations();
  ASSERT_TRUE(state.writeDurably("newer", target));
  const auto steps = laptop.faults().operations() - before;
  ASSERT_EQ(steps, 4);  // create, write, rename, synchronise the folder
  for (std::int64_t step = 1; step <= steps; ++step) {
    ASSERT_TRUE(state.writeDurably("old", target));
    laptop.faults().failOperation(laptop.faults().operations() + step);
    EXPECT_FALSE(state.writeDurably("new", target)) << step;
    EXPECT_EQ(state.read("touched.json"), step == 4 ? "new" : "old") << step;
    EXPECT_EQ(names(), std::vector<std::string>{"touched.json"}) << step;
  }
}

TEST_F(StateFilesTest, WhatWasWrittenDurablySurvivesALossOfPowerWholeOrNotAtAll) {
  ASSERT_TRUE(state.writeDurably("old", target));
  laptop.powerLoss();
  EXPECT_EQ(state.read("touched.json"), "old");
  for (std::int64_t step = 1; step <= 4; ++step) {
    laptop.faults().crashAt(laptop.faults().operations() + step, MemoryFaults::When::after);
    EXPECT_THROW((void)state.writeDurably("new", target), Crash);
    laptop.powerLoss();
    EXPECT_EQ(state.read("touched.json"), step == 4 ? "new" : "old") << step;
  }
}

TEST_F(StateFilesTest, AModeHoldsFromTheFirstByte) {
  laptop.faults().crashAt(laptop.faults().operations() + 1, MemoryFaults::When::after);
  EXPECT_THROW((void)state.writeDurably("secret", target, 0600), Crash);
  laptop.restart();
  ASSERT_EQ(names().size(), 1u);
  EXPECT_EQ(laptop.files().status(state.dir() + "/" + names()[0])->mode, 0600u);
}

TEST_F(StateFilesTest, AMarkerOutlivesALossOfPowerAndSoDoesItsRemoval) {
  ASSERT_TRUE(state.writeAtomically("kept", target));
  laptop.advance(100);
  state.touch(target);
  EXPECT_EQ(state.read("touched.json"), "kept");
  EXPECT_EQ(laptop.files().status(target)->modified, laptop.now());
  state.remove(target);
  state.touch(target);
  laptop.powerLoss();
  EXPECT_TRUE(state.exists("touched.json"));
  state.remove(target);
  state.remove(target);  // a missing file is no matter
  laptop.powerLoss();
  EXPECT_FALSE(state.exists("touched.json"));
}

TEST_F(StateFilesTest, AFolderThatCannotBeMadeIsFoundOutByTheFirstWrite) {
  laptop.files().put("/home/anna/Library/Application Support/Tovi", "a file is in the way");
  const StateFiles blocked(laptop.machine());
  EXPECT_FALSE(blocked.writeDurably("x", blocked.path("config.json")));
  blocked.touch(blocked.path("hold"));
  EXPECT_FALSE(blocked.exists("hold"));
}

}  // namespace
}  // namespace tovi
