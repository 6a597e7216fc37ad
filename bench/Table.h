// The one table that all benchmarks go into, with the machine that it was measured on.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovi::bench {

class Table {
 public:
  // `figure` and `goal` in the same unit, each shown with `decimals`. The goal is the most that is good, or with
  // `atLeast` the least.
  void add(const std::string& what, double figure, const std::string& unit, double goal, int decimals,
           bool atLeast = false);
  // What could not be measured here, and why.
  void addMissing(const std::string& what, const std::string& why);
  // What there is nothing to compare with here, and why; no goal is missed by it.
  void addIncomparable(const std::string& what, const std::string& why);

  std::string text() const;
  bool allMet() const;

 private:
  struct Row {
    std::string what, figure, goal, verdict;
  };
  std::vector<Row> rows_;
};

// Processor model, cores and kernel, in one line.
std::string thisMachine();

}  // namespace tovi::bench
