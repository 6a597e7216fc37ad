// Small files that the kernel makes up as they are read.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tovi {

// The file as far as `room` goes, as a view of it; absent if it can't be opened or read (errno says why).
// `folder` is a descriptor or AT_FDCWD.
std::optional<std::string_view> readSystemFile(int folder, const char* path, std::span<char> room);

// The whole file up to `limit` bytes.
std::optional<std::string> readWholeSystemFile(int folder, const char* path, std::size_t limit);

// The path that a process link such as "exe" or "cwd" names, as `room` holds it, without the note that the
// file is deleted. Absent if it can't be read (errno says why) or names no path.
std::optional<std::string_view> readProcessLink(int folder, const char* path, std::span<char> room);

}  // namespace tovi
