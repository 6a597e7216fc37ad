// Which applications use the machine's power right now, per application rather than per process. Two samples
// make a rate.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "observe/AppUsage.h"

namespace tovi {

struct Machine;

class EnergySampler {
 public:
  explicit EnergySampler(const Machine& machine);
  ~EnergySampler();

  // Most watts first. Empty for the first sample, and for one less than 0.2 s after the last: those only set the
  // baseline.
  std::vector<AppUsage> sample();

 private:
  struct State;
  const Machine& machine_;
  std::unique_ptr<State> state_;
};

}  // namespace tovi
