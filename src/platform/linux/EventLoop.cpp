#include "platform/linux/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/FileDescriptor.h"

namespace tovi {
namespace {

constexpr double kLongest = 3.0e9;  // seconds: a century stands for "never", far from overflow

std::uint64_t microseconds(Seconds span) {
  const double seconds = span.count();
  if (!(seconds > 0)) return 0;  // NaN too
  return static_cast<std::uint64_t>(std::min(seconds, kLongest) * 1e6);
}

std::uint64_t timeOf(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

}  // namespace

bool hangUpCounts() {
  struct sigaction now {};
  return ::sigaction(SIGHUP, nullptr, &now) != 0 || now.sa_handler != SIG_IGN;
}

struct EventLoop::Timer : std::enable_shared_from_this<Timer> {
  EventSource source;
  clockid_t clock = CLOCK_BOOTTIME;
  std::uint64_t due = 0;
  std::uint64_t interval = 0;  // 0: once
  Task task;

  static int fired(sd_event_source*, std::uint64_t, void* data) {
    const auto timer = static_cast<Timer*>(data)->shared_from_this();  // the call may end its own registration
    if (timer->interval == 0) {
      const Task once = std::exchange(timer->task, nullptr);
      if (once) once();
      return 0;
    }
    timer->due += timer->interval;
    const std::uint64_t now = timeOf(timer->clock);
    if (timer->due <= now) timer->due += ((now - timer->due) / timer->interval + 1) * timer->interval;
    sd_event_source_set_time(timer->source.get(), timer->due);
    sd_event_source_set_enabled(timer->source.get(), SD_EVENT_ONESHOT);
    timer->task();
    return 0;
  }
};

// Threads that work off the main one. Work and result live and die on the main thread: what they hold may
// belong to it.
struct EventLoop::LeafWork {
  struct Job {
    std::function<Task()> work;
    Task result;
    std::thread thread;
  };

  EventLoop* loop;
  FileDescriptor bell{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  EventSource source;
  std::list<Job> jobs;
  std::mutex mutex;
  std::vector<std::list<Job>::iterator> finished;  // guarded by `mutex`

  explicit LeafWork(EventLoop& owner) : loop(&owner) {
    sd_event_source* added = nullptr;
    sd_event_add_io(owner.event(), &added, bell.get(), EPOLLIN, rung, this);
    source.reset(added);
  }

  ~LeafWork() {
    for (Job& job : jobs) {
      if (job.thread.joinable()) job.thread.join();
    }
  }

  void start(std::function<Task()> work) {
    if (!source) return doInline(work);
    const auto job = jobs.insert(jobs.end(), Job{std::move(work), nullptr, {}});
    // The thread inherits a full mask, so that every signal goes to the main thread.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      job->thread = std::thread([this, job] {
        try {
          job->result = job->work();
        } catch (...) {
          job->result = nullptr;
        }
        const std::lock_guard lock(mutex);
        finished.push_back(job);
        eventfd_write(bell.get(), 1);
      });
    } catch (...) {
      doInline(job->work);
      jobs.erase(job);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  // No thread to be had: better slow than never.
  void doInline(const std::function<Task()>& work) {
    loop->post([work] {
      if (const Task then = work()) then();
    });
  }

  static int rung(sd_event_source*, int fd, std::uint32_t, void* data) {
    auto& self = *static_cast<LeafWork*>(data);
    eventfd_t count = 0;
    eventfd_read(fd, &count);
    std::vector<std::list<Job>::iterator> done;
    {
      const std::lock_guard lock(self.mutex);
      done.swap(self.finished);
    }
    for (const auto& job : done) {
      job->thread.join();
      if (job->result) self.loop->post(std::move(job->result));
      self.jobs.erase(job);
    }
    return 0;
  }
};

EventLoop::EventLoop() = default;

EventLoop::~EventLoop() {
  leafWork_.reset();
  tasks_.clear();
  posted_.reset();
  terminate_.reset();
  interrupt_.reset();
  hangUp_.reset();
  if (signalsTaken_) {
    // A second request during the shutdown has been granted already.
    sigset_t ours;
    sigemptyset(&ours);
    sigaddset(&ours, SIGTERM);
    sigaddset(&ours, SIGINT);
    if (hangUpCounts()) sigaddset(&ours, SIGHUP);
    const timespec atOnce{};
    while (sigtimedwait(&ours, nullptr, &atOnce) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &signalsBefore_, nullptr);
  }
  sd_event_unref(event_);
}

sd_event* EventLoop::event() {
  if (event_ == nullptr && sd_event_new(&event_) >= 0) {
    std::signal(SIGPIPE, SIG_IGN);
  }
  return event_;
}

void EventLoop::wakeForTasks() {
  // A new source each time: an old one that is switched on again counts as waiting since it was made, and so
  // would always go before timers and files.
  sd_event_source* added = nullptr;
  sd_event_add_defer(
      event(), &added,
      [](sd_event_source*, void* self) {
        static_cast<EventLoop*>(self)->runPosted();
        return 0;
      },
      this);
  posted_.reset(added);
}

void EventLoop::post(Task task) {
  tasks_.push_back(std::move(task));
  if (!posted_) wakeForTasks();
}

void EventLoop::runPosted() {
  posted_.reset();
  // Only what was there at the start: a task that posts itself again must not keep the rest waiting.
  for (std::size_t left = tasks_.size(); left > 0 && !stopped_; --left) {
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    if (task) task();
  }
  if (!tasks_.empty() && !posted_) wakeForTasks();
}

Registration EventLoop::addTimer(Seconds delay, Seconds accuracy, std::uint64_t interval, Task task) {
  const auto timer = std::make_shared<Timer>();
  timer->interval = interval;
  timer->task = std::move(task);
  sd_event_source* added = nullptr;
  int result = -1;
  for (const clockid_t clock : {CLOCK_BOOTTIME, CLOCK_MONOTONIC}) {
    timer->clock = clock;
    timer->due = timeOf(clock) + microseconds(delay);
    result = sd_event_add_time(event(), &added, clock, timer->due, std::max<std::uint64_t>(1, microseconds(accuracy)),
                               Timer::fired, timer.get());
    if (result >= 0) break;
  }
  if (result < 0) return {};
  timer->source.reset(added);
  return Registration{[timer] { timer->source.reset(); }};
}

Registration EventLoop::after(Seconds delay, Task task) {
  const Seconds accuracy{std::clamp(delay.count() / 10, 0.001, 0.05)};
  return addTimer(delay, accuracy, 0, std::move(task));
}

Registration EventLoop::every(Seconds interval, Seconds tolerance, Task task) {
  const std::uint64_t step = std::max<std::uint64_t>(1'000, microseconds(interval));
  return addTimer(interval, tolerance, step, std::move(task));
}

void EventLoop::offMain(std::function<Task()> work) {
  if (!leafWork_) leafWork_ = std::make_unique<LeafWork>(*this);
  leafWork_->start(std::move(work));
}

void EventLoop::takeSignals() {
  if (signalsTaken_) return;
  signalsTaken_ = true;
  sigset_t ours;
  sigemptyset(&ours);
  sigaddset(&ours, SIGTERM);
  sigaddset(&ours, SIGINT);
  if (hangUpCounts()) sigaddset(&ours, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &ours, &signalsBefore_);
  const auto stopIt = [](sd_event_source*, const signalfd_siginfo*, void* self) {
    static_cast<EventLoop*>(self)->stop();
    return 0;
  };
  sd_event_source* added = nullptr;
  if (sd_event_add_signal(event(), &added, SIGTERM, stopIt, this) >= 0) terminate_.reset(added);
  if (sd_event_add_signal(event(), &added, SIGINT, stopIt, this) >= 0) interrupt_.reset(added);
  if (hangUpCounts() && sd_event_add_signal(event(), &added, SIGHUP, stopIt, this) >= 0) hangUp_.reset(added);
}

void EventLoop::run() {
  if (event() == nullptr) return;
  takeSignals();
  while (!stopped_ && sd_event_run(event_, UINT64_MAX) >= 0) {
  }
  stopped_ = false;
}

void EventLoop::finishLeafWork() { leafWork_.reset(); }

}  // namespace tovi
