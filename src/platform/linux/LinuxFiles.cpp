#include "platform/linux/LinuxFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/FileLock.h"

namespace tovi {
namespace {

constexpr std::size_t kLargest = std::size_t{64} << 20;  // nothing that Tovi reads comes near

struct HeldLock : Files::Lock {
  explicit HeldLock(FileDescriptor held) : file(std::move(held)) {}
  FileDescriptor file;
};

bool synchronise(int fd) {
  int result = 0;
  do {
    result = ::fsync(fd);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

FileStatus statusFrom(const struct stat& about) {
  FileStatus status;
  status.kind = S_ISREG(about.st_mode)   ? FileStatus::Kind::file
                : S_ISDIR(about.st_mode) ? FileStatus::Kind::folder
                                         : FileStatus::Kind::other;
  status.modified =
      dateFromUnix(static_cast<double>(about.st_mtim.tv_sec) + static_cast<double>(about.st_mtim.tv_nsec) * 1e-9);
  status.size = static_cast<std::uint64_t>(about.st_size);
  status.inode = about.st_ino;
  status.mode = about.st_mode & 07777;
  status.uid = about.st_uid;
  status.gid = about.st_gid;
  return status;
}

}  // namespace

std::optional<std::string> LinuxFiles::read(const std::string& path) {
  // O_NONBLOCK: opening a pipe must not wait for a writer.
  const FileDescriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  struct stat about;
  if (!file || ::fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode)) return {};
  if (static_cast<std::size_t>(about.st_size) > kLargest) return {};
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(about.st_size));
  std::array<char, 16384> room;
  while (true) {
    const ssize_t got = ::read(file.get(), room.data(), room.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) return bytes;
    bytes.append(room.data(), static_cast<std::size_t>(got));
    if (bytes.size() > kLargest) return {};  // it grew meanwhile
  }
}

std::optional<FileStatus> LinuxFiles::status(const std::string& path) {
  struct stat about;
  if (::stat(path.c_str(), &about) != 0) return {};
  return statusFrom(about);
}

std::optional<FileStatus> LinuxFiles::linkStatus(const std::string& path) {
  struct stat about;
  if (::lstat(path.c_str(), &about) != 0) return {};
  return statusFrom(about);
}

std::optional<std::vector<std::string>> LinuxFiles::list(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> handle{::opendir(folder.c_str()), ::closedir};
  if (!handle) return {};
  std::vector<std::string> names;
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(handle.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return {};
  return names;
}

bool LinuxFiles::create(const std::string& path, std::optional<unsigned> mode) {
  // In a folder that others write to, what lies there may be a stranger's link to some other file.
  const auto anew = [&] {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode.value_or(0644) & 07777);
  };
  FileDescriptor file{anew()};
  if (!file && errno == EEXIST && ::unlink(path.c_str()) == 0) file = FileDescriptor{anew()};
  if (!file) return false;
  if (!mode) return true;
  // The process's mask may have narrowed it.
  struct stat about;
  if (::fstat(file.get(), &about) != 0) return false;
  return (about.st_mode & 07777) == (*mode & 07777) || ::fchmod(file.get(), *mode & 07777) == 0;
}

bool LinuxFiles::write(const std::string& path, std::string_view bytes, Sync sync) {
  FileDescriptor file{::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!file) return false;
  struct stat before;
  if (::fstat(file.get(), &before) != 0) return false;
  const auto size = static_cast<off_t>(bytes.size());
  while (!bytes.empty()) {
    const ssize_t put = ::write(file.get(), bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
  // Cut last, and only what is longer: some file systems write out a file that was cut as soon as it is closed.
  if (before.st_size > size && ::ftruncate(file.get(), size) != 0) return false;
  if (sync == Sync::yes && !synchronise(file.get())) return false;
  // Some file systems tell of a full disk only here.
  return ::close(file.release()) == 0 || errno == EINTR;
}

bool LinuxFiles::rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str()) == 0;
}

bool LinuxFiles::syncFolder(const std::string& folder) {
  const FileDescriptor handle{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!handle) return false;
  // A file system that can't do this has nothing to wait for.
  return synchronise(handle.get()) || errno == EINVAL || errno == ENOTSUP || errno == EROFS;
}

bool LinuxFiles::remove(const std::string& path) { return std::remove(path.c_str()) == 0; }

bool LinuxFiles::makeFolders(const std::string& folder, unsigned mode) {
  const auto isFolder = [](const std::string& path) {
    struct stat about;
    return ::stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
  };
  if (isFolder(folder)) return true;
  for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
    const std::string upTo = folder.substr(0, slash);
    // Whether it stands counts, not who made it: another process may be at it too.
    if (::mkdir(upTo.c_str(), mode) != 0 && !isFolder(upTo)) return false;
    if (slash == std::string::npos) return true;
  }
}

bool LinuxFiles::setModified(const std::string& path, Date date) {
  const double seconds = unixSeconds(date);
  if (!std::isfinite(seconds) || std::abs(seconds) > 1e15) return false;
  const double whole = std::floor(seconds);
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(whole);
  times[1].tv_nsec = std::min(static_cast<long>((seconds - whole) * 1e9), 999'999'999L);
  return ::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

bool LinuxFiles::setMode(const std::string& path, unsigned mode) { return ::chmod(path.c_str(), mode & 07777) == 0; }

bool LinuxFiles::setOwner(const std::string& path, unsigned uid, unsigned gid) {
  return ::chown(path.c_str(), uid, gid) == 0;
}

std::optional<std::string> LinuxFiles::resolve(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved{::realpath(path.c_str(), nullptr), std::free};
  if (!resolved) return {};
  return std::string{resolved.get()};
}

std::unique_ptr<Files::Lock> LinuxFiles::tryLock(const std::string& path, Seconds patience) {
  FileDescriptor file{::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600)};
  if (!file || !lockWithin(file.get(), patience)) return nullptr;
  return std::make_unique<HeldLock>(std::move(file));
}

}  // namespace tovi
