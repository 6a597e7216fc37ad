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

constexpr std::chrono::seconds kProcessorsKept{5};  // they are looked up once for a pass over many processes
constexpr int kMostRounds = 16;                     // a process that makes threads faster than we list them has its way

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

// Whether I/O priorities can be set at all: a sandbox may forbid it. Tried on the calling thread, with what it has.
bool marksWork() {
  static const bool works = [] {
    const long own = ioPriority(0);
    const bool isSet = own >= 0 && IOPRIO_PRIO_CLASS(own) != IOPRIO_CLASS_NONE;
    return own >= 0 && setIoPriority(0, isSet && !hasDefaultIoPriority(0) ? static_cast<int>(own) : kNoPriority);
  }();
  return works;
}

// Calls `act` once for each thread, until a listing shows no new one, also after a refusal. False: another process,
// or a refusal.
template <typename Act>
bool overThreads(const std::string& procRoot, Pid pid, const BackgroundPriority::SameProcess& same, Act act) {
  const std::string folder = fmt::format("{}/{}/task", procRoot, pid);
  std::vector<Pid> threads, seen;  // `seen` rises
  bool refused = false;
  for (int round = 0; round < kMostRounds; ++round) {
    if (!same()) return false;
    PidFolder{folder}.list(threads);
    bool anyNew = false;
    for (const Pid thread : threads) {
      const auto at = std::lower_bound(seen.begin(), seen.end(), thread);
      if (at != seen.end() && *at == thread) continue;
      seen.insert(at, thread);
      anyNew = true;
      refused |= act(thread) == Done::refused;
    }
    if (!anyNew) break;
  }
  return !refused && !seen.empty();
}

}  // namespace

BackgroundPriority::BackgroundPriority(std::string procRoot, std::string devices)
    : procRoot_(std::move(procRoot)), devices_(std::move(devices)) {}

const BackgroundPriority::Processors& BackgroundPriority::processors() {
  const auto now = std::chrono::steady_clock::now();
  if (!known_ || now - known_->at > kProcessorsKept) {
    const CpuSet full = fullCpuSet();
    known_ = Processors{full, slowCpuSet(full, devices_), now};
  }
  return *known_;
}

// The mark comes first and goes last. So a thread that bears none, though it could, was never confined by us: if it
// has just the slow processors, its program chose them.
bool BackgroundPriority::confine(Pid pid, const SameProcess& same) {
  const auto& [full, slow, at] = processors();
  return overThreads(procRoot_, pid, same, [&full = full, &slow = slow](Pid thread) {
    const auto allowed = CpuSet::ofThread(thread);
    if (!allowed) return Done::gone;
    if (!(*allowed == full)) return Done::yes;  // ours already, or somebody's choice
    const bool marks = marksWork() && hasDefaultIoPriority(thread);
    if (marks && !setIoPriority(thread, kMarkedIdle)) return outcome(false);
    return outcome(slow.applyTo(thread));
  });
}

bool BackgroundPriority::release(Pid pid, const SameProcess& same) {
  const auto& [full, slow, at] = processors();
  return overThreads(procRoot_, pid, same, [&full = full, &slow = slow](Pid thread) {
    const auto allowed = CpuSet::ofThread(thread);
    if (!allowed) return Done::gone;
    const bool marked = ioPriority(thread) == kMarkedIdle;
    const bool couldBearMark = marksWork() && hasDefaultIoPriority(thread);
    // Which processors are the slow ones can have changed since, as some went off.
    const bool ours = marked ? (*allowed & full) == *allowed && !(*allowed == full)
                             : *allowed == slow && !(*allowed == full) && !couldBearMark;
    if (ours && !CpuSet::every().applyTo(thread)) return outcome(false);
    return marked ? outcome(setIoPriority(thread, kNoPriority)) : Done::yes;
  });
}

bool BackgroundPriority::isMarked(Pid pid) const { return ioPriority(pid) == kMarkedIdle; }

}  // namespace tovi
