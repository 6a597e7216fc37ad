// The few value types that every floor speaks: process identifiers, wall-clock dates, spans, and the
// handle that keeps a callback registered.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

namespace tovi {

using Pid = std::int32_t;

// Microseconds since 1970 on the scale of process start times (see Processes::startTime). Compared for
// equality as part of a process's identity, so it is an integer and never passes through a double.
using Microseconds = std::uint64_t;

using Seconds = std::chrono::duration<double>;

// A wall-clock instant: double seconds since 1970. It jumps when the person or the network sets the clock.
using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

constexpr Date dateFromUnix(double seconds) { return Date{Seconds{seconds}}; }
constexpr double unixSeconds(Date date) { return date.time_since_epoch().count(); }

// "Never so far": 0001-01-01, far below any date that a clock can show.
constexpr Date kDistantPast = dateFromUnix(-62135769600.0);

constexpr Date operator+(Date date, double seconds) { return date + Seconds{seconds}; }
constexpr double secondsBetween(Date from, Date to) { return (to - from).count(); }

// Keeps something registered (a timer, an observer, a file watch) for as long as it lives. An empty one
// stands for "could not be registered".
class [[nodiscard]] Registration {
 public:
  Registration() = default;
  explicit Registration(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  Registration(Registration&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Registration& operator=(Registration&& other) noexcept {
    if (this != &other) {
      reset();
      cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
  }
  ~Registration() { reset(); }

  void reset() {
    if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
  }
  explicit operator bool() const { return static_cast<bool>(cancel_); }

 private:
  std::function<void()> cancel_;
};

}  // namespace tovi
