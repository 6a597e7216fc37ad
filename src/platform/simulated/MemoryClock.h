// Virtual time. It stands still until somebody moves it.
#pragma once

#include "platform/Clock.h"

namespace tovi {

class MemoryClock final : public Clock {
 public:
  MemoryClock(Date start, Seconds sinceBoot);

  Date now() override { return steadyNow() + step_; }
  Seconds sinceBoot() override { return Seconds{awake_ + slept_ + bootOffset_}; }
  std::optional<Date> bootTime() override;

  // Seconds that the machine was awake and on, over all boots: the scale on which timers run and processes work.
  double awake() const { return awake_; }

  // The wall clock as if nobody had ever set it: the scale of process start times.
  Date steadyNow() const { return boot_ + (awake_ + slept_ + bootOffset_); }

  void moveTo(double awake) { awake_ = awake; }
  void sleep(double seconds) { slept_ += seconds; }
  void step(double seconds) { step_ += seconds; }
  void reboot(double downSeconds);
  void forgetBootTime() { bootTime_.reset(); }  // a new process asks anew

 private:
  Date boot_;
  double awake_ = 0;
  double slept_ = 0;
  double bootOffset_;  // added to the two above it gives seconds since the last boot
  double step_ = 0;
  std::optional<Date> bootTime_;
};

}  // namespace tovi
