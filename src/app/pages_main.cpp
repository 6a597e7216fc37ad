// Writes the shells' completions and the manual page into the folder that is named; part of the build.

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "commands/Pages.h"

namespace {

struct Page {
  const char* name;
  std::string (*text)();
};

constexpr Page kPages[] = {
    {"tovi.bash", tovi::Pages::bashCompletion},
    {"_tovi", tovi::Pages::zshCompletion},
    {"tovi.fish", tovi::Pages::fishCompletion},
    {"tovi.1", tovi::Pages::manual},
};

bool write(const std::string& path, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::error_code ignored;
  std::filesystem::create_directories(argv[1], ignored);
  for (const Page& page : kPages) {
    const std::string path = fmt::format("{}/{}", argv[1], page.name);
    if (!write(path, page.text())) {
      fmt::print(stderr, "can't write {}\n", path);
      return 1;
    }
  }
  return 0;
}
