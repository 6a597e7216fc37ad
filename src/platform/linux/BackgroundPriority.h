// "Slow" that needs no privileges to be taken back: nice values and scheduling classes can't be raised again by
// an ordinary user, but a thread's processors and its I/O class can.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "platform/Types.h"
#include "platform/linux/CpuSet.h"

namespace tovi {

class BackgroundPriority {
 public:
  explicit BackgroundPriority(std::string procRoot = "/proc", std::string devices = "/sys/devices");

  using SameProcess = std::function<bool()>;  // asked before each round over the threads

  // Confines every thread that may run everywhere to the slow processors, at idle I/O class. Threads for which
  // somebody chose processors or an I/O class stay as they are. Repeatable: new threads are confined too.
  // False if it isn't the same process or the system refused it for a thread.
  bool confine(Pid pid, const SameProcess& same);

  // Takes that back for the threads that bear our mark, and for those that couldn't bear it and have exactly the
  // slow processors. False as above; the other threads are released all the same.
  bool release(Pid pid, const SameProcess& same);

  // Whether the first thread bears our mark: it was confined, or inherited that from the process that started it.
  bool isMarked(Pid pid) const;

 private:
  struct Processors {
    CpuSet full;
    CpuSet slow;
    std::chrono::steady_clock::time_point at;
  };
  const Processors& processors();

  std::string procRoot_;
  std::string devices_;
  std::optional<Processors> known_;
};

}  // namespace tovi
