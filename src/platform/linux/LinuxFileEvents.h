// News of a file through inotify on its folder and itself.
#pragma once

#include "platform/FileEvents.h"

namespace tovi {

class EventLoop;

// Several changes that arrive together give one call. A call comes also when the kernel lost count of the
// changes, since the file may be among them.
class LinuxFileEvents : public FileEvents {
 public:
  explicit LinuxFileEvents(EventLoop& loop) : loop_(loop) {}

  Registration watch(const std::string& folder, const std::string& name, std::function<void()> call) override;

 private:
  EventLoop& loop_;
};

}  // namespace tovi
