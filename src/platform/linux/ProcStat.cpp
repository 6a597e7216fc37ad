#include "platform/linux/ProcStat.h"

#include <charconv>

namespace tovi {
namespace {

// Fields as proc(5) numbers them; the state is 3.
constexpr int kParent = 4, kFlags = 9, kUserTime = 14, kSystemTime = 15, kThreads = 20, kStart = 22;
constexpr std::uint64_t kKernelThreadFlag = 0x00200000;  // PF_KTHREAD of the kernel's sched.h

template <typename Number>
bool take(std::string_view word, Number& into) {
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), into);
  return error == std::errc{} && end == word.data() + word.size();
}

}  // namespace

std::optional<ProcStat> parseProcStat(std::string_view text) {
  // Only numbers follow the name, so the last parenthesis is the one that closes it.
  const auto close = text.rfind(')');
  const auto open = text.find('(');
  if (close == std::string_view::npos || open == std::string_view::npos || open > close) return {};
  std::string_view rest = text.substr(close + 1);
  if (rest.size() < 4 || rest[0] != ' ' || rest[1] == ' ' || rest[2] != ' ') return {};
  ProcStat stat;
  stat.state = rest[1];
  rest.remove_prefix(3);

  std::uint64_t flags = 0;
  for (int field = kParent; field <= kStart; ++field) {
    const auto end = rest.find_first_of(" \n");
    const std::string_view word = rest.substr(0, end);
    if (word.empty()) return {};
    bool good = true;
    switch (field) {
      case kParent:
        good = take(word, stat.parent) && stat.parent >= 0;
        break;
      case kFlags:
        good = take(word, flags);
        break;
      case kUserTime:
        good = take(word, stat.userTime);
        break;
      case kSystemTime:
        good = take(word, stat.systemTime);
        break;
      case kThreads:
        good = take(word, stat.threads);
        break;
      case kStart:
        good = take(word, stat.start);
        break;
      default:
        break;
    }
    if (!good || end == std::string_view::npos) return {};  // a number at the very end may be half of one
    rest.remove_prefix(end + 1);
  }
  stat.kernelThread = (flags & kKernelThreadFlag) != 0;
  return stat;
}

}  // namespace tovi
