#include "platform/linux/LinuxProcesses.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <ctime>

#include "platform/Utf8.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/PidFolder.h"
#include "platform/linux/ProcStat.h"
#include "platform/linux/ProcessPicture.h"
#include "platform/linux/SystemFile.h"

namespace tovi {
namespace {

constexpr std::size_t kMostArguments = std::size_t{4} << 20;  // bytes; the kernel's own limit is of this order

std::uint64_t nanosecondsPerTick() {
  static const long perSecond = ::sysconf(_SC_CLK_TCK);
  return 1'000'000'000 / static_cast<std::uint64_t>(perSecond > 0 ? perSecond : 100);
}

// User and system time of all its threads. The ticks of /proc are of 10 ms: one of them between two looks that follow
// each other soon would pass for work.
std::optional<std::uint64_t> processorClock(Pid pid) {
  clockid_t clock;
  timespec time;
  if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) return {};
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

}  // namespace

LinuxProcesses::LinuxProcesses(std::string procRoot, BootAnchor& anchor, std::function<double()> wattsPerCore,
                               std::string devices)
    : procRoot_(std::move(procRoot)),
      anchor_(anchor),
      wattsPerCore_(std::move(wattsPerCore)),
      priority_(procRoot_, std::move(devices)) {}

LinuxProcesses::~LinuxProcesses() = default;

Pid LinuxProcesses::self() { return ::getpid(); }

Pid LinuxProcesses::parentOfSelf() { return ::getppid(); }

std::vector<Pid> LinuxProcesses::allPids() {
  std::vector<Pid> pids;
  PidFolder{procRoot_}.list(pids);
  return pids;
}

const ProcessTable& LinuxProcesses::table() {
  if (!picture_) picture_ = std::make_unique<ProcessPicture>(procRoot_, anchor_);
  return picture_->bringUpToDate();
}

std::optional<ProcStat> LinuxProcesses::stat(Pid pid) const {
  if (pid < 1) return {};
  std::array<char, 4096> room;
  const auto line = readSystemFile(AT_FDCWD, fmt::format("{}/{}/stat", procRoot_, pid).c_str(), room);
  if (!line) return {};
  const auto facts = parseProcStat(*line);
  if (facts && facts->ended()) return {};
  return facts;
}

std::optional<std::string> LinuxProcesses::link(Pid pid, const char* name) const {
  if (pid < 1) return {};
  std::array<char, PATH_MAX> room;
  const auto target = readProcessLink(AT_FDCWD, fmt::format("{}/{}/{}", procRoot_, pid, name).c_str(), room);
  if (!target) return {};
  return repairUtf8(*target);
}

std::optional<Pid> LinuxProcesses::parent(Pid pid) {
  const auto facts = stat(pid);
  if (!facts) return {};
  return facts->parent;
}

std::optional<Microseconds> LinuxProcesses::startTime(Pid pid) {
  const auto facts = stat(pid);
  if (!facts) return {};
  return anchor_.fromTicks(facts->start);
}

std::optional<std::string> LinuxProcesses::path(Pid pid) { return link(pid, "exe"); }

std::vector<std::string> LinuxProcesses::arguments(Pid pid) {
  if (pid < 1) return {};
  const auto text = readWholeSystemFile(AT_FDCWD, fmt::format("{}/{}/cmdline", procRoot_, pid).c_str(), kMostArguments);
  std::vector<std::string> arguments;
  std::string_view rest = text ? std::string_view{*text} : std::string_view{};
  while (!rest.empty()) {
    const auto end = rest.find('\0');
    arguments.push_back(repairUtf8(rest.substr(0, end)));
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  return arguments;
}

std::optional<std::string> LinuxProcesses::workingDirectory(Pid pid) { return link(pid, "cwd"); }

std::optional<ProcessUsage> LinuxProcesses::usage(Pid pid) {
  if (pid < 1) return {};
  ProcessUsage usage;
  // A tenth of what opening a file in /proc costs, and asked for all processes.
  if (const auto clock = processorClock(pid)) {
    usage.cpuNanoseconds = *clock;
  } else if (const auto facts = stat(pid)) {
    usage.cpuNanoseconds = (facts->userTime + facts->systemTime) * nanosecondsPerTick();
  } else {
    return {};
  }
  // A watt for a nanosecond is a nanojoule.
  const double energy = static_cast<double>(usage.cpuNanoseconds) * wattsPerCore_();
  if (energy > 0) usage.energyNanojoules = static_cast<std::uint64_t>(energy);
  return usage;
}

bool LinuxProcesses::exists(Pid pid) { return pid >= 1 && (::kill(pid, 0) == 0 || errno == EPERM); }

Microseconds LinuxProcesses::now() { return anchor_.now(); }

bool LinuxProcesses::mayTouch(Pid pid) { return pid >= 2 && pid != self(); }

bool LinuxProcesses::isOurs(Pid pid) {
  // The kernel refuses what isn't ours, except to the superuser.
  if (::geteuid() != 0) return true;
  std::array<char, 4096> room;
  const auto facts = readSystemFile(AT_FDCWD, fmt::format("{}/{}/status", procRoot_, pid).c_str(), room);
  constexpr std::string_view kUser = "\nUid:\t";
  const auto at = facts ? facts->find(kUser) : std::string_view::npos;
  if (at == std::string_view::npos) return false;
  const std::string_view digits = facts->substr(at + kUser.size());
  uid_t user = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), user);
  return error == std::errc{} && user == ::getuid();
}

bool LinuxProcesses::signal(Pid pid, Microseconds start, int number) {
  if (!mayTouch(pid)) return false;
  // Opened before the check: from here on the descriptor means the process whose identity is checked, even if
  // its number is given away in between.
  const FileDescriptor handle{static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))};
  const bool noHandles = !handle && (errno == ENOSYS || errno == EPERM);  // an old kernel, or a sandbox's filter
  if (!handle && !noHandles) return false;
  if (startTime(pid) != start) return false;
  if (handle) {
    if (::syscall(SYS_pidfd_send_signal, handle.get(), number, nullptr, 0) == 0) return true;
    if (errno != ENOSYS) return false;
  }
  return ::kill(pid, number) == 0;
}

bool LinuxProcesses::pause(Pid pid, Microseconds start) {
  return mayTouch(pid) && isOurs(pid) && signal(pid, start, SIGSTOP);
}

bool LinuxProcesses::resume(Pid pid, Microseconds start) { return signal(pid, start, SIGCONT); }

bool LinuxProcesses::setBackgroundPriority(Pid pid, Microseconds start) {
  return mayTouch(pid) && isOurs(pid) && priority_.confine(pid, [&] { return startTime(pid) == start; });
}

bool LinuxProcesses::setNormalPriority(Pid pid, Microseconds start) {
  return mayTouch(pid) && priority_.release(pid, [&] { return startTime(pid) == start; });
}

void LinuxProcesses::restoreInheritedPriority(const std::unordered_set<Pid>& listed) {
  constexpr int kMostPasses = 16;  // one that is still slow can start another while we look
  for (int pass = 0; pass < kMostPasses; ++pass) {
    bool found = false;
    for (const Pid pid : allPids()) {
      if (!priority_.isMarked(pid) || listed.contains(pid) || !isOurs(pid)) continue;
      // Also ourselves: whoever started us may have been slowed.
      const auto start = startTime(pid);
      found |= start && priority_.release(pid, [&] { return startTime(pid) == start; });
    }
    if (!found) return;
  }
}

}  // namespace tovi
