#include "platform/simulated/MemoryBroadcast.h"

#include "platform/MainQueue.h"

namespace tovi {

Broadcast::Sent MemoryBroadcast::post(std::string_view text) {
  posted_.emplace_back(text);
  if (broken_) return Sent::failed;
  if (text.size() > kLargest) return Sent::tooLarge;
  if (!listener_) return Sent::nobodyListens;
  queue_.post([listener = std::weak_ptr(listener_), heard = std::string(text)] {
    if (const auto still = listener.lock()) (*still)(heard);
  });
  return Sent::yes;
}

Registration MemoryBroadcast::listen(std::function<void(std::string)> call) {
  if (broken_ || listener_) return {};
  listener_ = std::make_shared<Listener>(std::move(call));
  return Registration([this, mine = std::weak_ptr(listener_)] {
    // An expired one was dropped with its process, perhaps together with this object.
    if (const auto still = mine.lock(); still && still == listener_) listener_.reset();
  });
}

}  // namespace tovi
