// Runs a fuzz target on kept inputs, for compilers that have no fuzzer: each file of the folders named as arguments,
// and each beginning of a small one, as a write that broke off leaves it.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

constexpr std::size_t kSmall = 300;  // bytes

// In memory of exactly this size, so that a read beyond the end is noticed.
void run(const std::string& bytes, std::size_t size) {
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int count, char** words) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < count; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(words[i])) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  for (const auto& file : files) {
    std::fprintf(stderr, "%s\n", file.c_str());
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    for (std::size_t size = 0; bytes.size() <= kSmall && size < bytes.size(); ++size) run(bytes, size);
    run(bytes, bytes.size());
  }
  return files.empty() ? 1 : 0;
}
