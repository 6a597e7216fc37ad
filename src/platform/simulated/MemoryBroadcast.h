// The request road in memory: what is posted reaches the one listener, if there is one.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/Broadcast.h"

namespace tovi {

class MainQueue;

class MemoryBroadcast final : public Broadcast {
 public:
  static constexpr std::size_t kLargest = 128 * 1024;  // bytes; longer texts are too large

  explicit MemoryBroadcast(MainQueue& queue) : queue_(queue) {}

  Sent post(std::string_view text) override;
  Registration listen(std::function<void(std::string)> call) override;  // empty if somebody listens already

  const std::vector<std::string>& posted() const { return posted_; }  // all texts, heard or not
  void setBroken(bool broken) { broken_ = broken; }                   // every post and listen fails
  void drop() { listener_.reset(); }                                  // the listening process is gone

 private:
  using Listener = std::function<void(std::string)>;

  MainQueue& queue_;
  std::vector<std::string> posted_;
  std::shared_ptr<Listener> listener_;
  bool broken_ = false;
};

}  // namespace tovi
