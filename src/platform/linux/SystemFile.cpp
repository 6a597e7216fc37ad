#include "platform/linux/SystemFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/linux/FileDescriptor.h"

namespace tovi {
namespace {

// Bytes read, less than `room` only at the end of the file; absent after an error.
std::optional<std::size_t> fill(int fd, std::span<char> room) {
  std::size_t size = 0;
  while (size < room.size()) {
    const ssize_t got = ::read(fd, room.data() + size, room.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  return size;
}

}  // namespace

std::optional<std::string_view> readSystemFile(int folder, const char* path, std::span<char> room) {
  const FileDescriptor file{::openat(folder, path, O_RDONLY | O_CLOEXEC)};
  if (!file) return {};
  const auto size = fill(file.get(), room);
  if (!size) return {};
  return std::string_view{room.data(), *size};
}

std::optional<std::string> readWholeSystemFile(int folder, const char* path, std::size_t limit) {
  const FileDescriptor file{::openat(folder, path, O_RDONLY | O_CLOEXEC)};
  if (!file) return {};
  std::string text;
  std::array<char, 16384> room;
  while (text.size() < limit) {
    const auto size = fill(file.get(), room);
    if (!size) return {};
    text.append(room.data(), *size);
    if (*size < room.size()) break;
  }
  if (text.size() > limit) text.resize(limit);
  return text;
}

std::optional<std::string_view> readProcessLink(int folder, const char* path, std::span<char> room) {
  const ssize_t size = ::readlinkat(folder, path, room.data(), room.size());
  if (size < 0) return {};
  std::string_view target{room.data(), static_cast<std::size_t>(size)};
  constexpr std::string_view kDeleted = " (deleted)";
  if (target.ends_with(kDeleted)) target.remove_suffix(kDeleted.size());
  if (!target.starts_with('/')) {
    errno = ENOENT;  // out of reach from our root
    return {};
  }
  return target;
}

}  // namespace tovi
