#include "platform/simulated/MemoryQueue.h"

#include <algorithm>
#include <stdexcept>

#include "platform/simulated/MemoryClock.h"

namespace tovi {

namespace {

constexpr int kMostTurns = 1'000'000;  // at one moment; beyond it tasks post each other for ever

}  // namespace

void MemoryQueue::post(Task task) { posted_.push_back(std::move(task)); }

Registration MemoryQueue::add(double delay, double interval, double tolerance, Task task) {
  const std::uint64_t id = ++next_;
  Timer timer{std::make_shared<Task>(std::move(task)), interval, tolerance, clock_.awake() + std::max(0.0, delay)};
  arm(id, timer);
  timers_->emplace(id, std::move(timer));
  return Registration([id, timers = std::weak_ptr(timers_)] {
    if (const auto still = timers.lock()) still->erase(id);
  });
}

void MemoryQueue::arm(std::uint64_t id, const Timer& timer) {
  due_.push({timer.nominal + lateness_ * timer.tolerance, ++next_, id});
}

Registration MemoryQueue::after(Seconds delay, Task task) { return add(delay.count(), 0, 0, std::move(task)); }

Registration MemoryQueue::every(Seconds interval, Seconds tolerance, Task task) {
  // An interval of nothing would never let the clock move on.
  const double seconds = std::max(interval.count(), 0.001);
  return add(seconds, seconds, tolerance.count(), std::move(task));
}

void MemoryQueue::offMain(std::function<Task()> work) {
  const auto leaf = [this, work = std::move(work)] {
    if (Task result = work()) post(std::move(result));
  };
  if (leafDelay_.count() <= 0) {
    post(leaf);
    return;
  }
  const std::uint64_t id = ++next_;
  Timer timer{std::make_shared<Task>(leaf), 0, 0, clock_.awake() + leafDelay_.count()};
  arm(id, timer);
  timers_->emplace(id, std::move(timer));
}

bool MemoryQueue::runPosted() {
  for (int turn = 0; !posted_.empty(); ++turn) {
    if (turn == kMostTurns) throw std::logic_error("the main queue never comes to rest");
    const Task task = std::move(posted_.front());
    posted_.pop_front();
    task();
    if (stopped_) return false;
  }
  return true;
}

void MemoryQueue::dropEnded() {
  while (!due_.empty() && !timers_->contains(due_.top().id)) due_.pop();
}

void MemoryQueue::runTimer(const Due& due) {
  Timer& timer = timers_->at(due.id);
  const std::shared_ptr<Task> task = timer.task;
  if (timer.interval > 0) {
    timer.nominal += timer.interval;
    arm(due.id, timer);
  } else {
    timers_->erase(due.id);
  }
  (*task)();
}

bool MemoryQueue::runTo(double awake) {
  for (;;) {
    if (!runPosted()) return false;
    dropEnded();
    if (due_.empty() || due_.top().at > awake) break;
    const Due due = due_.top();
    due_.pop();
    clock_.moveTo(std::max(clock_.awake(), due.at));
    runTimer(due);
    if (stopped_) return false;
  }
  clock_.moveTo(awake);
  return true;
}

void MemoryQueue::advance(Seconds span) {
  stopped_ = false;
  runTo(clock_.awake() + std::max(0.0, span.count()));
}

void MemoryQueue::runUntil(Date date) {
  // A task may step the clock, so the way left is measured again after each stretch.
  stopped_ = false;
  do {
    if (!runPosted()) return;
    dropEnded();
    const double left = secondsBetween(clock_.now(), date);
    if (left <= 0 && (due_.empty() || due_.top().at > clock_.awake())) return;
    const double target = clock_.awake() + std::max(0.0, left);
    if (!runTo(due_.empty() ? target : std::min(target, std::max(due_.top().at, clock_.awake())))) return;
  } while (true);
}

void MemoryQueue::run() {
  if (std::exchange(stopped_, false)) return;
  for (;;) {
    if (!runPosted()) break;
    dropEnded();
    if (due_.empty() || !runTo(due_.top().at)) break;
  }
  stopped_ = false;
}

void MemoryQueue::clear() {
  posted_.clear();
  timers_ = std::make_shared<Timers>();
  due_ = {};
  stopped_ = false;
}

}  // namespace tovi
