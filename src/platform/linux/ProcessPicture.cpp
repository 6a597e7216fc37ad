#include "platform/linux/ProcessPicture.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <utility>

#include "platform/Utf8.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/ProcStat.h"
#include "platform/linux/SystemFile.h"

namespace tovi {
namespace {

std::optional<std::uint64_t> leadingNumber(std::string_view text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end == text.data()) return {};
  return value;
}

// "PID/name" without an allocation.
class EntryPath {
 public:
  explicit EntryPath(Pid pid) : tail_(std::to_chars(room_.data(), room_.data() + 12, pid).ptr) {}
  const char* to(const char* name) {
    *tail_ = '/';
    std::strcpy(tail_ + 1, name);
    return room_.data();
  }

 private:
  std::array<char, 24> room_;
  char* tail_;
};

// One read is enough: the kernel gives such a line whole.
std::optional<std::string_view> readLine(int folder, const char* path, std::span<char> room) {
  const FileDescriptor file{::openat(folder, path, O_RDONLY | O_CLOEXEC)};
  if (!file) return {};
  const ssize_t size = ::read(file.get(), room.data(), room.size());
  if (size < 0) return {};
  return std::string_view{room.data(), static_cast<std::size_t>(size)};
}

}  // namespace

ProcessPicture::ProcessPicture(const std::string& procRoot, BootAnchor& anchor) : anchor_(anchor), root_(procRoot) {}

bool ProcessPicture::stillInCycle() {
  const auto before = forks_;
  forks_.reset();
  const auto text = readWholeSystemFile(root_.descriptor(), "stat", 4 << 20);
  constexpr std::string_view kKey = "\nprocesses ";
  if (text) {
    const auto at = text->find(kKey);
    if (at != std::string::npos) forks_ = leadingNumber(std::string_view{*text}.substr(at + kKey.size()));
  }
  std::array<char, 32> room;
  const auto most = readSystemFile(root_.descriptor(), "sys/kernel/pid_max", room);
  const auto cycle = most ? leadingNumber(*most) : std::nullopt;
  return before && forks_ && cycle && *forks_ >= *before && *forks_ - *before < *cycle / 2;
}

bool ProcessPicture::read(ProcessEntry& entry, bool& kernelThread) {
  std::array<char, 2048> room;
  const auto line = readLine(root_.descriptor(), EntryPath{entry.pid}.to("stat"), room);
  if (!line && (errno == ENOENT || errno == ESRCH)) return false;
  const auto stat = line ? parseProcStat(*line) : std::nullopt;
  if (stat && stat->ended()) return false;
  const auto start = stat ? std::optional{anchor_.fromTicks(stat->start)} : std::nullopt;
  entry.parent = stat ? std::optional{stat->parent} : std::nullopt;
  kernelThread = stat && stat->kernelThread;
  const bool same = entry.generation != 0 && entry.start == start;
  entry.start = start;
  const bool otherProgram = !kernelThread && readProgram(entry);
  if (!same || otherProgram) entry.generation = ++generation_;
  return true;
}

bool ProcessPicture::readProgram(ProcessEntry& entry) {
  std::array<char, PATH_MAX> room;
  const auto target = readProcessLink(root_.descriptor(), EntryPath{entry.pid}.to("exe"), room);
  if (!target) return std::exchange(entry.path, std::nullopt).has_value();
  if (entry.path && *entry.path == *target) return false;
  std::string repaired = repairUtf8(*target);
  if (entry.path == repaired) return false;
  entry.path = std::move(repaired);
  return true;
}

const ProcessTable& ProcessPicture::bringUpToDate() {
  const bool same = stillInCycle();
  root_.list(pids_);
  std::vector<ProcessEntry> before = table_.take();
  gone_.clear();
  auto listed = pids_.begin();
  for (const ProcessEntry& entry : before) {
    while (listed != pids_.end() && *listed < entry.pid) ++listed;
    if (listed == pids_.end() || *listed != entry.pid) gone_.push_back(entry.pid);
  }
  turn_ = (turn_ + 1) % kTurns;
  const Microseconds now = anchor_.now();

  const auto stands = [&](const ProcessEntry& entry, bool kernelThread) {
    if (!same) return false;
    if (kernelThread) return true;
    if (!entry.start || *entry.start + kYoung > now) return false;
    if (entry.parent && std::binary_search(gone_.begin(), gone_.end(), *entry.parent)) return false;
    return static_cast<unsigned>(entry.pid) % kTurns != turn_;
  };

  next_.clear();
  nextKernelThreads_.clear();
  std::size_t at = 0;
  for (const Pid pid : pids_) {
    while (at < before.size() && before[at].pid < pid) ++at;
    const bool known = at < before.size() && before[at].pid == pid;
    ProcessEntry entry;
    if (known) entry = std::move(before[at]);
    entry.pid = pid;
    bool kernelThread = known && kernelThreads_[at];
    if (known && stands(entry, kernelThread)) {
      const bool itsTurn = static_cast<unsigned>(pid) % kProgramTurns == turn_ % kProgramTurns;
      if (itsTurn && !kernelThread && readProgram(entry)) entry.generation = ++generation_;
    } else if (!read(entry, kernelThread)) {
      continue;
    }
    next_.push_back(std::move(entry));
    nextKernelThreads_.push_back(kernelThread);
  }

  table_ = ProcessTable(std::move(next_));
  next_ = std::move(before);
  kernelThreads_.swap(nextKernelThreads_);
  return table_;
}

}  // namespace tovi
