// The death of the process before and after every change that it makes to the laptop in memory.
#pragma once

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {

// Each time on a scene of its own, which has a `laptop`: kills `act`, and gives `then` what that leaves.
template <class Make, class Act, class Then>
void atEveryDeath(bool powerLost, const Make& make, const Act& act, const Then& then) {
  for (const auto when : {MemoryFaults::When::before, MemoryFaults::When::after}) {
    bool died = true;
    for (std::int64_t step = 1; died; ++step) {
      ASSERT_LT(step, 100);
      SCOPED_TRACE(testing::Message() << "step " << step << (powerLost ? ", power lost" : ""));
      const auto scene = make();
      MemoryFaults& faults = scene->laptop.faults();
      faults.crashAt(faults.operations() + step, when);
      died = false;
      try {
        act(*scene);
      } catch (const Crash&) {
        died = true;
      }
      faults.forgetOrders();
      if (died) powerLost ? scene->laptop.powerLoss() : scene->laptop.restart();
      then(*scene);
      EXPECT_TRUE(died || step > 8) << "it made hardly a change";
    }
  }
}

}  // namespace tovi
