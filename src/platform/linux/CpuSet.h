// Which processors the threads of this machine may run on, and the few on which slowed ones do.
#pragma once

#include <sched.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi {

// A set of processor numbers below 1024.
class CpuSet {
 public:
  CpuSet() { CPU_ZERO(&bits_); }

  static CpuSet every();
  // The kernel's list form, as in "0-3,8,10-11"; absent if it is anything else.
  static std::optional<CpuSet> parse(std::string_view list);
  // What a thread may run on, processors that are off left out. Absent after an error (errno says which).
  static std::optional<CpuSet> ofThread(Pid thread);

  bool applyTo(Pid thread) const;  // false: errno says why

  void add(int processor) { CPU_SET(static_cast<std::size_t>(processor), &bits_); }
  bool has(int processor) const { return CPU_ISSET(static_cast<std::size_t>(processor), &bits_); }
  int count() const { return CPU_COUNT(&bits_); }
  int last() const;  // -1 if empty
  CpuSet operator&(const CpuSet& other) const;
  friend bool operator==(const CpuSet& a, const CpuSet& b) { return CPU_EQUAL(&a.bits_, &b.bits_); }

 private:
  cpu_set_t bits_;
};

// All processors that a thread of this machine, or of the container around us, gets by default.
CpuSet fullCpuSet();

// The efficiency cores among `full`: those that the machine lists as such, else those of the least capacity, else
// (one kind of core) the last one. `devices` is "/sys/devices".
CpuSet slowCpuSet(const CpuSet& full, const std::string& devices);

}  // namespace tovi
