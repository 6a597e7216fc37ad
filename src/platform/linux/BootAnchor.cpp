#include "platform/linux/BootAnchor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/LinuxFiles.h"
#include "platform/linux/SystemFile.h"

namespace tovi {
namespace {

std::uint64_t ticksPerSecond() {
  static const long ticks = ::sysconf(_SC_CLK_TCK);
  return ticks > 0 ? static_cast<std::uint64_t>(ticks) : 100;
}

std::uint64_t microsecondsSinceBoot() {
  timespec now{};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

std::optional<std::uint64_t> number(std::string_view text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return {};
  return value;
}

// The anchor that the file holds, if it is one of this boot.
std::optional<Microseconds> noted(int folder, std::string_view bootId) {
  std::array<char, 128> room;
  auto text = readSystemFile(folder, "boot-anchor", room);
  if (!text || !text->ends_with('\n')) return {};
  text->remove_suffix(1);
  const auto blank = text->find(' ');
  if (blank == std::string_view::npos || text->substr(0, blank) != bootId) return {};
  return number(text->substr(blank + 1));
}

// Whoever holds the folder's lock is the only one to make the anchor. Never waits longer than a second: without
// the lock (some network file systems know none) the worst is that two processes of one moment differ.
// Without the lock if it can't be had: two that agree on an anchor at once agree all the same.
FileDescriptor lockFolder(const std::string& folder) {
  FileDescriptor handle{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (handle) lockWithin(handle.get(), Seconds{1});
  return handle;
}

}  // namespace

BootAnchor::BootAnchor(std::string stateFolder, std::string kernelRoot)
    : stateFolder_(std::move(stateFolder)), kernelRoot_(std::move(kernelRoot)) {}

Microseconds BootAnchor::microseconds() {
  if (!anchor_) {
    const Microseconds proposal = bootByTheKernel();
    anchor_ = shared(proposal).value_or(proposal);
  }
  return *anchor_;
}

Microseconds BootAnchor::fromTicks(std::uint64_t ticksSinceBoot) {
  const std::uint64_t perSecond = ticksPerSecond();
  return microseconds() + ticksSinceBoot / perSecond * 1'000'000 + ticksSinceBoot % perSecond * 1'000'000 / perSecond;
}

Microseconds BootAnchor::now() { return microseconds() + microsecondsSinceBoot(); }

Microseconds BootAnchor::bootByTheKernel() const {
  // Big machines list every interrupt before this line.
  const auto text = readWholeSystemFile(AT_FDCWD, (kernelRoot_ + "/stat").c_str(), 4 << 20);
  if (text) {
    constexpr std::string_view kKey = "\nbtime ";
    if (const auto at = text->find(kKey); at != std::string::npos) {
      const std::string_view rest = std::string_view{*text}.substr(at + kKey.size());
      if (const auto seconds = number(rest.substr(0, rest.find('\n')))) return *seconds * 1'000'000;
    }
  }
  timespec wall{};
  ::clock_gettime(CLOCK_REALTIME, &wall);
  const auto now =
      static_cast<std::uint64_t>(wall.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(wall.tv_nsec) / 1'000;
  return (now - microsecondsSinceBoot()) / 1'000'000 * 1'000'000;
}

std::optional<Microseconds> BootAnchor::shared(Microseconds proposal) const {
  std::array<char, 64> room;
  auto bootId = readSystemFile(AT_FDCWD, (kernelRoot_ + "/sys/kernel/random/boot_id").c_str(), room);
  if (!bootId) return {};
  while (bootId->ends_with('\n')) bootId->remove_suffix(1);
  if (bootId->empty()) return {};

  // Nearly always it is there: no lock then.
  {
    const FileDescriptor folder{::open(stateFolder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (folder) {
      if (const auto anchor = noted(folder.get(), *bootId)) return anchor;
    }
  }
  // Made here if need be: an anchor kept to ourselves could differ from the one that is written down later.
  if (!LinuxFiles{}.makeFolders(stateFolder_)) return {};
  const FileDescriptor folder = lockFolder(stateFolder_);
  if (!folder) return {};
  if (const auto anchor = noted(folder.get(), *bootId)) return anchor;

  const std::string line = fmt::format("{} {}\n", *bootId, proposal);
  const std::string temporary = fmt::format("boot-anchor.tmp{}", ::getpid());
  FileDescriptor file{::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
  const bool written = file && ::write(file.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                       ::renameat(folder.get(), temporary.c_str(), folder.get(), "boot-anchor") == 0;
  if (!written) {
    ::unlinkat(folder.get(), temporary.c_str(), 0);
    return {};
  }
  return noted(folder.get(), *bootId);
}

}  // namespace tovi
