// /proc/PID/stat, in which a stranger's program chooses its own name.

#include "platform/linux/ProcStat.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "fuzz/Fuzz.h"

using namespace tovi;
using fuzz::must;

namespace {

// The fields after the state, as words.
std::vector<std::string> wordsAfter(std::string_view text, std::size_t close) {
  std::vector<std::string> words;
  for (std::string_view rest = text.substr(close + 4); !rest.empty();) {
    const auto end = std::min(rest.find_first_of(" \n"), rest.size());
    words.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return words;
}

void saysWhatStandsThere(std::string_view text, const ProcStat& stat) {
  const auto words = wordsAfter(text, text.rfind(')'));
  must(words.size() >= 19, "a line that was taken has all fields up to the start time");
  // A field is numbered by proc(5); the first word here is field 4. Zeros in front say nothing.
  const auto field = [&](std::size_t number) {
    std::string word = words[number - 4];
    const auto sign = word.starts_with('-') ? 1u : 0u;
    word.erase(sign, std::min(word.find_first_not_of('0', sign), word.size() - 1) - sign);
    return word == "-0" ? "0" : word;
  };
  must(text[text.rfind(')') + 2] == stat.state, "the state is one letter");
  must(field(4) == std::to_string(stat.parent) && stat.parent >= 0, "the parent is field 4");
  must(field(14) == std::to_string(stat.userTime), "the user time is field 14");
  must(field(15) == std::to_string(stat.systemTime), "the system time is field 15");
  must(field(20) == std::to_string(stat.threads), "the threads are field 20");
  must(field(22) == std::to_string(stat.start), "the start is field 22");
}

void aNameChangesNothing(std::string_view name) {
  const std::string head = fmt::format("4711 ({}) ", name);
  const std::string line = head + "S 12 4711 4711 0 -1 4194560 1 2 3 4 50 60 7 8 20 0 3 0 987654 1 2 3\n";
  const ProcStat wanted{.parent = 12,
                        .state = 'S',
                        .kernelThread = false,
                        .threads = 3,
                        .userTime = 50,
                        .systemTime = 60,
                        .start = 987654};
  must(parseProcStat(line) == wanted, "whatever the name, the numbers are the same");
  // Up to the blank after the start time nothing is certain, for a number may go on.
  const std::size_t missing = 7 + name.size() % 60;  // of the end, which begins with that blank
  must(!parseProcStat(std::string_view{line}.substr(0, line.size() - missing)), "a line that breaks off isn't taken");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  if (const auto stat = parseProcStat(text)) saysWhatStandsThere(text, *stat);
  aNameChangesNothing(text);
  return 0;
}
