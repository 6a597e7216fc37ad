// What the fuzz targets share. A target takes any bytes, and ends the process where the code under it breaks a promise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tovi::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// `promise`: what must hold for every input, in words.
inline void must(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "Broken: %s\n", promise);
  std::abort();
}

// What stands before the first `separator`, which is taken off `text` together with it; all of it if there is none.
inline std::string_view takeUpTo(std::string_view& text, char separator) {
  const auto end = text.find(separator);
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return piece;
}

}  // namespace tovi::fuzz
