// The moment of boot that all start times are counted from. The kernel tells start times in ticks since boot,
// and the wall-clock time of boot moves whenever the clock is set; so the first process after a boot writes it
// down, and every other one uses that number. A start time is part of a process's identity in the journal and
// must come out equal everywhere.
#pragma once

#include <optional>
#include <string>

#include "platform/Types.h"

namespace tovi {

class BootAnchor {
 public:
  // `stateFolder` holds the file "boot-anchor": the boot's identifier, a blank, microseconds since 1970, a line
  // feed. A file of another boot or a broken one is replaced. `kernelRoot` is "/proc".
  explicit BootAnchor(std::string stateFolder, std::string kernelRoot = "/proc");

  // Settled at the first call, and the same for the life of the object. The number first written down is the
  // kernel's time of boot in whole seconds, which a process that can't reach the file arrives at as well, as
  // long as nobody has set the clock.
  Microseconds microseconds();

  Microseconds fromTicks(std::uint64_t ticksSinceBoot);  // as in /proc/PID/stat
  Microseconds now();

 private:
  Microseconds bootByTheKernel() const;
  std::optional<Microseconds> shared(Microseconds proposal) const;

  std::string stateFolder_;
  std::string kernelRoot_;
  std::optional<Microseconds> anchor_;
};

}  // namespace tovi
