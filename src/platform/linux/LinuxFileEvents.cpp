#include "platform/linux/LinuxFileEvents.h"

#include <sys/inotify.h>

#include "platform/linux/EventLoop.h"

namespace tovi {
namespace {

// The folder tells which file has the name, that file when it is written. The folder would tell of writing too, but of
// each of its files, and what is written at every tick would wake the loop at every tick.
struct Watch : std::enable_shared_from_this<Watch> {
  EventLoop* loop = nullptr;
  std::string folder, name;
  std::function<void()> call;
  EventSource entries, content;  // `content` is there while the file is
  bool called = false;           // the call is queued

  EventSource add(const std::string& path, std::uint32_t changes, sd_event_inotify_handler_t handler) {
    sd_event_source* added = nullptr;
    if (sd_event_add_inotify(loop->event(), &added, path.c_str(), changes, handler, this) < 0) return {};
    // Before the queue's calls, so that all changes of one reading are in when the call is made.
    sd_event_source_set_priority(added, SD_EVENT_PRIORITY_IMPORTANT);
    return EventSource{added};
  }

  bool watchEntries() {
    entries = add(folder, IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR, entryChanged);
    return entries != nullptr;
  }

  void watchContent() { content = add(folder + "/" + name, IN_MODIFY | IN_CLOSE_WRITE, contentChanged); }

  static int entryChanged(sd_event_source*, const inotify_event* event, void* data) {
    auto& watch = *static_cast<Watch*>(data);
    const bool ours = (event->len > 0 && watch.name == event->name) || (event->mask & IN_Q_OVERFLOW) != 0;
    if (!ours) return 0;
    watch.watchContent();  // before the call, which reads what was written until now
    watch.tell();
    return 0;
  }

  static int contentChanged(sd_event_source*, const inotify_event*, void* data) {
    static_cast<Watch*>(data)->tell();
    return 0;
  }

  void tell() {
    if (called) return;
    called = true;
    loop->post([weak = weak_from_this()] {
      const auto self = weak.lock();  // the call may end its own registration
      if (!self || !self->entries) return;
      self->called = false;
      self->call();
    });
  }
};

}  // namespace

Registration LinuxFileEvents::watch(const std::string& folder, const std::string& name, std::function<void()> call) {
  const auto watch = std::make_shared<Watch>();
  watch->loop = &loop_;
  watch->folder = folder;
  watch->name = name;
  watch->call = std::move(call);
  if (loop_.event() == nullptr || !watch->watchEntries()) return {};
  watch->watchContent();
  return Registration{[watch] {
    watch->entries.reset();
    watch->content.reset();
  }};
}

}  // namespace tovi
