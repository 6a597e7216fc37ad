#include "platform/linux/LinuxFileEvents.h"

#include <sys/inotify.h>

#include "platform/linux/EventLoop.h"

namespace tovi {
namespace {

struct Watch : std::enable_shared_from_this<Watch> {
  EventLoop* loop = nullptr;
  std::string name;
  std::function<void()> call;
  EventSource source;
  bool called = false;  // the call is queued

  static int happened(sd_event_source*, const inotify_event* event, void* data) {
    auto& watch = *static_cast<Watch*>(data);
    const bool ours = (event->len > 0 && watch.name == event->name) || (event->mask & IN_Q_OVERFLOW) != 0;
    if (!ours || watch.called) return 0;
    watch.called = true;
    watch.loop->post([weak = watch.weak_from_this()] {
      const auto self = weak.lock();  // the call may end its own registration
      if (!self || !self->source) return;
      self->called = false;
      self->call();
    });
    return 0;
  }
};

}  // namespace

Registration LinuxFileEvents::watch(const std::string& folder, const std::string& name, std::function<void()> call) {
  constexpr std::uint32_t kChanges =
      IN_CREATE | IN_CLOSE_WRITE | IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR;
  const auto watch = std::make_shared<Watch>();
  watch->loop = &loop_;
  watch->name = name;
  watch->call = std::move(call);
  sd_event_source* added = nullptr;
  if (loop_.event() == nullptr ||
      sd_event_add_inotify(loop_.event(), &added, folder.c_str(), kChanges, Watch::happened, watch.get()) < 0) {
    return {};
  }
  watch->source.reset(added);
  // Before the queue's calls, so that all changes of one reading are in when the call is made.
  sd_event_source_set_priority(added, SD_EVENT_PRIORITY_IMPORTANT);
  return Registration{[watch] { watch->source.reset(); }};
}

}  // namespace tovi
