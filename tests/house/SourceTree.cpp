#include "house/SourceTree.h"

#include <regex.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <set>

namespace tovi::house {
namespace {

namespace fs = std::filesystem;

struct Room {
  std::string_view folder;
  int floor;
};

// A longer folder stands before the one that holds it.
constexpr Room kRooms[] = {
    {"platform/simulated/", 2},
    {"platform/linux/", 1},
    {"platform/", 0},
    {"core/", 10},
    {"observe/", 20},
    {"safety/", 30},
    {"agents/", 30},
    {"savings/", 40},
    {"engine/", 50},
    {"commands/", 60},
    {"remote/", 60},
    {"ui/", 60},
    {"app/", 70},
};
constexpr int kTopFloor = 70;

bool endsWith(std::string_view text, std::string_view end) { return text.ends_with(end); }

const Room* roomOf(std::string_view pathInSrc) {
  for (const Room& room : kRooms)
    if (pathInSrc.starts_with(room.folder)) return &room;
  return nullptr;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::size_t from = 0;
  while (from < text.size()) {
    const auto end = std::min(text.find('\n', from), text.size());
    result.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  return result;
}

struct Include {
  std::string name;
  bool quoted;
};

std::vector<Include> includesOf(const std::string& text) {
  std::vector<Include> result;
  for (const auto& line : lines(text)) {
    const auto hash = line.find_first_not_of(" \t");
    if (hash == std::string::npos || line[hash] != '#') continue;
    const auto word = line.find_first_not_of(" \t", hash + 1);
    if (word == std::string::npos || line.compare(word, 7, "include") != 0) continue;
    const auto open = line.find_first_of("\"<", word);
    if (open == std::string::npos) continue;
    const bool quoted = line[open] == '"';
    const auto close = line.find(quoted ? '"' : '>', open + 1);
    if (close != std::string::npos) result.push_back({line.substr(open + 1, close - open - 1), quoted});
  }
  return result;
}

// An extended regular expression of the C library.
class Pattern {
 public:
  explicit Pattern(const std::string& text) {
    valid_ = regcomp(&regex_, text.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) == 0;
  }
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;
  ~Pattern() {
    if (valid_) regfree(&regex_);
  }
  bool isIn(const std::string& line) const { return valid_ && regexec(&regex_, line.c_str(), 0, nullptr, 0) == 0; }

 private:
  regex_t regex_{};
  bool valid_ = false;
};

// Whether the build file lists the name as a word of its own.
bool lists(const std::string& buildFile, const std::string& name) {
  constexpr std::string_view kAround = " \t\n()";
  for (auto at = buildFile.find(name); at != std::string::npos; at = buildFile.find(name, at + 1)) {
    const auto end = at + name.size();
    const bool begins = at == 0 || kAround.find(buildFile[at - 1]) != kAround.npos;
    if (begins && (end == buildFile.size() || kAround.find(buildFile[end]) != kAround.npos)) return true;
  }
  return false;
}

// The path from src/ on of the sources; nothing for other files.
std::optional<std::string> inSrc(const std::string& path) {
  if (!path.starts_with("src/") || !(endsWith(path, ".h") || endsWith(path, ".cpp"))) return std::nullopt;
  return path.substr(4);
}

bool isBinary(const std::string& text) { return text.find('\0') != std::string::npos; }

}  // namespace

SourceTree SourceTree::read(const std::string& root) {
  SourceTree tree;
  const auto add = [&](const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!isBinary(text)) tree.files[fs::relative(path, root).generic_string()] = std::move(text);
  };
  for (const char* folder : {"src", "tests", "bench", "scripts", ".ci", "docs", "share", "completions", "man"}) {
    if (!fs::exists(fs::path(root) / folder)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(root) / folder))
      if (entry.is_regular_file()) add(entry.path());
  }
  for (const auto& entry : fs::directory_iterator(root))
    if (entry.is_regular_file()) add(entry.path());
  return tree;
}

Breaches upwardIncludes(const SourceTree& tree) {
  Breaches breaches;
  for (const auto& [path, text] : tree.files) {
    const auto own = inSrc(path);
    if (!own) continue;
    const Room* from = roomOf(*own);
    if (!from) {
      breaches.push_back(path + " stands on no floor");
      continue;
    }
    for (const auto& include : includesOf(text)) {
      if (!include.quoted) continue;
      if (!tree.files.contains("src/" + include.name)) {
        breaches.push_back(path + " includes " + include.name + ", which is no path from src/ on");
        continue;
      }
      const Room* to = roomOf(include.name);
      if (!to) continue;
      if (to->floor > from->floor) breaches.push_back(path + " includes " + include.name + " of a floor above");
      const bool aMachine = to->folder == "platform/linux/" || to->folder == "platform/simulated/";
      const bool aboveThePlatform = from->floor >= 10 && from->floor < kTopFloor;
      if (aMachine && aboveThePlatform) breaches.push_back(path + " knows its machine by " + include.name);
    }
  }
  return breaches;
}

Breaches includeCircles(const SourceTree& tree) {
  Breaches breaches;
  std::set<std::string> done;
  std::vector<std::string> road;
  const std::function<void(const std::string&)> visit = [&](const std::string& name) {
    if (const auto at = std::find(road.begin(), road.end(), name); at != road.end()) {
      std::string circle;
      for (auto step = at; step != road.end(); ++step) circle += *step + " > ";
      breaches.push_back(circle + name);
      return;
    }
    const auto file = tree.files.find("src/" + name);
    if (file == tree.files.end() || !done.insert(name).second) return;
    road.push_back(name);
    for (const auto& include : includesOf(file->second))
      if (include.quoted) visit(include.name);
    road.pop_back();
  };
  for (const auto& [path, text] : tree.files)
    if (const auto own = inSrc(path)) visit(*own);
  return breaches;
}

Breaches filesOutOfTheBuild(const SourceTree& tree) {
  Breaches breaches;
  for (const auto& [path, text] : tree.files) {
    if (!endsWith(path, ".cpp")) continue;
    const fs::path whole(path);
    bool listed = false;
    for (auto folder = whole.parent_path(); !listed && !folder.empty(); folder = folder.parent_path()) {
      const auto list = tree.files.find((folder / "CMakeLists.txt").generic_string());
      if (list == tree.files.end()) continue;
      listed = lists(list->second, whole.lexically_relative(folder).generic_string());
    }
    if (!listed) breaches.push_back(path + " is in no CMakeLists.txt");
  }
  return breaches;
}

Breaches costlyIncludes(const SourceTree& tree) {
  Breaches breaches;
  for (const auto& [path, text] : tree.files) {
    if (!inSrc(path)) continue;
    for (const auto& include : includesOf(text)) {
      if (include.name == "iostream") breaches.push_back(path + " includes " + include.name);
      if (endsWith(path, ".h") && endsWith(include.name, "/json.hpp"))
        breaches.push_back(path + " includes " + include.name + "; a header takes json_fwd.hpp");
    }
  }
  return breaches;
}

Breaches foreignReferences(const SourceTree& tree) {
  // In pieces, so that this file doesn't hold the words it looks for.
  const std::string spec = std::string("sp") + "ec";
  const std::string work = std::string("/wo") + "rk/";
  const Pattern forbidden("\\bpart [0-9]+\\.[0-9]+|\\b" + spec + "\\.md|\\bthe " + spec + "(s|ification)?\\b|\\bas " +
                          spec + "ified\\b|\\bissues? #?[0-9]+|\\bdesign\\.md|\\bdesign page\\b|(^|[^[:alnum:]_.~-])" +
                          work + "(main|shared|\\.library)|/tmp/br" + "ief|/tmp/b" + "-" + "|registry\\.n" + "pmjs|py" +
                          "pi\\.org|crat" + "es\\.io|proxy\\.go" + "lang|deb\\.deb" + "ian\\.org");
  Breaches breaches;
  for (const auto& [path, text] : tree.files) {
    int number = 0;
    for (const auto& line : lines(text)) {
      ++number;
      if (forbidden.isIn(line)) breaches.push_back(path + ":" + std::to_string(number) + ": " + line);
    }
  }
  return breaches;
}

Breaches barehandedHeaders(const SourceTree& tree) {
  Breaches breaches;
  for (const auto& [path, text] : tree.files) {
    if (!endsWith(path, ".h")) continue;
    if (!text.starts_with("// ")) breaches.push_back(path + " doesn't open by saying what it is for");
    if (text.find("\n#pragma once\n") == std::string::npos) breaches.push_back(path + " lacks #pragma once");
  }
  return breaches;
}

}  // namespace tovi::house
