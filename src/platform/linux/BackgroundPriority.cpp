#include "platform/linux/BackgroundPriority.h"

#include <fmt/format.h>
#include <linux/ioprio.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/linux/CpuSet.h"
#include "platform/linux/PidFolder.h"

namespace tovi {
namespace {

constexpr int kMostRounds = 16;  // a process that makes threads faster than we list them has its way

long ioPriority(Pid thread) { return ::syscall(SYS_ioprio_get, IOPRIO_WHO_PROCESS, thread); }

// The idle class knows no levels, so the level is free to be a mark of ours: ionice gives that class another one.
constexpr int kMarkedIdle = IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 3);
constexpr int kNoPriority = IOPRIO_PRIO_VALUE(IOPRIO_CLASS_NONE, 0);

bool setIoPriority(Pid thread, int priority) {
  return ::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, thread, priority) == 0;
}

// Whether nobody chose an I/O priority for the thread: newer kernels tell of none, older ones of the level that
// follows from the nice value.
bool hasDefaultIoPriority(Pid thread) {
  const long priority = ioPriority(thread);
  if (priority < 0) return false;
  if (IOPRIO_PRIO_CLASS(priority) == IOPRIO_CLASS_NONE) return true;
  errno = 0;
  const int nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
  return errno == 0 && priority == static_cast<long>(IOPRIO_PRIO_VALUE(IOPRIO_CLASS_BE, (nice + 20) / 5));
}

enum class Done { yes, gone, refused };

Done outcome(bool worked) { return worked ? Done::yes : errno == EPERM ? Done::refused : Done::gone; }

// Calls `act` once for each thread, until a listing shows no new one. False: another process, or a refusal.
template <typename Act>
bool overThreads(const std::string& procRoot, Pid pid, const BackgroundPriority::SameProcess& same, Act act) {
  const std::string folder = fmt::format("{}/{}/task", procRoot, pid);
  std::vector<Pid> threads, seen;  // `seen` rises
  for (int round = 0; round < kMostRounds; ++round) {
    if (!same()) return false;
    PidFolder{folder}.list(threads);
    bool anyNew = false;
    for (const Pid thread : threads) {
      const auto at = std::lower_bound(seen.begin(), seen.end(), thread);
      if (at != seen.end() && *at == thread) continue;
      seen.insert(at, thread);
      anyNew = true;
      if (act(thread) == Done::refused) return false;
    }
    if (!anyNew) break;
  }
  return !seen.empty();
}

}  // namespace

BackgroundPriority::BackgroundPriority(std::string procRoot, std::string devices)
    : procRoot_(std::move(procRoot)), devices_(std::move(devices)) {}

bool BackgroundPriority::confine(Pid pid, const SameProcess& same) const {
  const CpuSet full = fullCpuSet();
  const CpuSet slow = slowCpuSet(full, devices_);
  return overThreads(procRoot_, pid, same, [&](Pid thread) {
    const auto allowed = CpuSet::ofThread(thread);
    if (!allowed) return Done::gone;
    if (!(*allowed == full)) return Done::yes;  // ours already, or somebody's choice
    // The processors come first and go last: by them the thread is known as ours if we break off between.
    if (!slow.applyTo(thread)) return outcome(false);
    if (!hasDefaultIoPriority(thread)) return Done::yes;
    setIoPriority(thread, kMarkedIdle);  // where it is forbidden, fewer processors are slow enough
    return Done::yes;
  });
}

bool BackgroundPriority::release(Pid pid, const SameProcess& same) const {
  const CpuSet full = fullCpuSet();
  const CpuSet slow = slowCpuSet(full, devices_);
  return overThreads(procRoot_, pid, same, [&](Pid thread) {
    const auto allowed = CpuSet::ofThread(thread);
    if (!allowed) return Done::gone;
    const bool marked = ioPriority(thread) == kMarkedIdle;
    // Which processors are the slow ones can have changed since, as some went off.
    const bool ours = *allowed == slow || (marked && (*allowed & full) == *allowed && !(*allowed == full));
    if (marked && !setIoPriority(thread, kNoPriority)) return outcome(false);
    return ours ? outcome(CpuSet::every().applyTo(thread)) : Done::yes;
  });
}

bool BackgroundPriority::isMarked(Pid pid) const { return ioPriority(pid) == kMarkedIdle; }

}  // namespace tovi
