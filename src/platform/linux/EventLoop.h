// The main queue on sd-event: calls, timers that share wake-ups, leaf work in threads, requests to terminate.
#pragma once

#include <systemd/sd-event.h>

#include <csignal>
#include <deque>
#include <memory>

#include "platform/MainQueue.h"

namespace tovi {

struct EventSourceEnd {
  void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using EventSource = std::unique_ptr<sd_event_source, EventSourceEnd>;

// Whether the end of the terminal is a request to stop. To "nohup" it isn't: it ignores that signal, but one that is
// blocked so that it can be waited for would come all the same.
bool hangUpCounts();

// Costs nothing until the first use. A registration may be ended inside its own call and after the loop is gone.
class EventLoop : public MainQueue {
 public:
  EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop() override;  // waits for the leaf work under way; its results are dropped

  void post(Task task) override;

  // Up to 50 ms or a tenth of the delay late, whichever is less; suspension counts as time.
  Registration after(Seconds delay, Task task) override;

  // Due at whole intervals from now. Times missed, in a suspension say, are left out, not made up for.
  Registration every(Seconds interval, Seconds tolerance, Task task) override;

  void offMain(std::function<Task()> work) override;

  // SIGTERM and SIGINT end it as stop() does; from the first run on they are held back for it until this object
  // goes. SIGPIPE is ignored.
  void run() override;

  // Calls not yet made stay queued. Before run() it makes that return at once.
  void stop() override { stopped_ = true; }

  // For the other classes that wait on the loop; made at the first use, null if the system refuses.
  sd_event* event();

  // Waits for work that is still under way off the main thread. A machine calls it before its parts go, which that
  // work uses.
  void finishLeafWork();

 private:
  struct Timer;
  struct LeafWork;

  Registration addTimer(Seconds delay, Seconds accuracy, std::uint64_t interval, Task task);
  void takeSignals();
  void wakeForTasks();
  void runPosted();

  sd_event* event_ = nullptr;
  EventSource posted_;  // there exactly while `tasks_` has something
  EventSource terminate_, interrupt_, hangUp_;
  std::deque<Task> tasks_;
  std::unique_ptr<LeafWork> leafWork_;
  bool stopped_ = false;
  bool signalsTaken_ = false;
  sigset_t signalsBefore_{};
};

}  // namespace tovi
