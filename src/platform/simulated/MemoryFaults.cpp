#include "platform/simulated/MemoryFaults.h"

#include <algorithm>

namespace tovi {

namespace {

constexpr std::size_t kLogLimit = 100'000;  // entries; a simulated day makes more than anybody reads

}  // namespace

void MemoryFaults::crashAt(std::int64_t number, When when) {
  crash_ = number;
  when_ = when;
}

void MemoryFaults::forgetOrders() {
  failing_.clear();
  crash_ = 0;
}

std::vector<std::string> MemoryFaults::log(std::int64_t from) const {
  std::vector<std::string> lines;
  const std::int64_t skip = std::max<std::int64_t>(0, from - firstLogged_);
  for (std::size_t i = static_cast<std::size_t>(skip); i < log_.size(); ++i) {
    lines.push_back(std::string(log_[i].verb) + " " + log_[i].subject);
  }
  return lines;
}

bool MemoryFaults::begin(std::string_view verb, std::string_view subject) {
  if (dead_) return false;
  ++count_;
  if (log_.size() == kLogLimit) {
    log_.erase(log_.begin(), log_.begin() + kLogLimit / 2);
    firstLogged_ += kLogLimit / 2;
  }
  log_.push_back({verb, std::string(subject)});
  if (count_ == crash_ && when_ == When::before) die();
  return failing_.empty() || failing_.erase(count_) == 0;
}

void MemoryFaults::end() {
  if (afterEach) afterEach();
  if (count_ == crash_ && when_ == When::after) die();
}

void MemoryFaults::die() {
  dead_ = true;
  crash_ = 0;
  throw Crash{count_};
}

}  // namespace tovi
