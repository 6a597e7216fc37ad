// What happened last in a world: what the world did, each with the number of machine operations that came before it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace tovi::soak {

struct Happening {
  std::int64_t tick = 0;
  std::int64_t operations = 0;
  std::string what;
};

class Story {
 public:
  static constexpr std::size_t kKept = 60;

  void tell(std::int64_t tick, std::int64_t operations, std::string what) {
    if (last_.size() == kKept) last_.pop_front();
    last_.push_back({tick, operations, std::move(what)});
  }
  const std::deque<Happening>& last() const { return last_; }  // the oldest first

 private:
  std::deque<Happening> last_;
};

}  // namespace tovi::soak
