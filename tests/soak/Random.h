// The one source of chance of a simulated world. The algorithm and all distributions are fixed, so that a seed means
// the same world on every computer.
#pragma once

#include <cstdint>
#include <iterator>
#include <random>

namespace tovi::soak {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  // From `low` up to but not including `high`.
  double real(double low, double high) { return low + (high - low) * static_cast<double>(engine_() >> 11) * 0x1p-53; }

  // Both ends included.
  int whole(int low, int high) {
    return low + static_cast<int>(engine_() % static_cast<std::uint64_t>(high - low + 1));
  }

  bool chance(double probability) { return real(0, 1) < probability; }

  template <class Choices>
  const auto& pick(const Choices& choices) {
    return *std::next(std::begin(choices), whole(0, static_cast<int>(std::size(choices)) - 1));
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace tovi::soak
