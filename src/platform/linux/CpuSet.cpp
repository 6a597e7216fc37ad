#include "platform/linux/CpuSet.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <thread>

#include "platform/linux/SystemFile.h"

namespace tovi {
namespace {

std::string_view withoutLineFeed(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || value < 0) return {};
  return value;
}

}  // namespace

CpuSet CpuSet::every() {
  CpuSet all;
  for (int i = 0; i < CPU_SETSIZE; ++i) all.add(i);
  return all;
}

std::optional<CpuSet> CpuSet::parse(std::string_view list) {
  CpuSet set;
  list = withoutLineFeed(list);
  while (!list.empty()) {
    const auto comma = list.find(',');
    const std::string_view range = list.substr(0, comma);
    const auto dash = range.find('-');
    const auto from = numberIn<int>(range.substr(0, dash));
    const auto to = dash == std::string_view::npos ? from : numberIn<int>(range.substr(dash + 1));
    if (!from || !to || *to < *from || *to >= CPU_SETSIZE) return {};
    for (int i = *from; i <= *to; ++i) set.add(i);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
    if (list.empty()) return {};
  }
  return set;
}

std::optional<CpuSet> CpuSet::ofThread(Pid thread) {
  CpuSet set;
  if (::sched_getaffinity(thread, sizeof set.bits_, &set.bits_) != 0) return {};
  return set;
}

bool CpuSet::applyTo(Pid thread) const { return ::sched_setaffinity(thread, sizeof bits_, &bits_) == 0; }

int CpuSet::last() const {
  for (int i = CPU_SETSIZE - 1; i >= 0; --i) {
    if (has(i)) return i;
  }
  return -1;
}

CpuSet CpuSet::operator&(const CpuSet& other) const {
  CpuSet both;
  CPU_AND(&both.bits_, &bits_, &other.bits_);
  return both;
}

CpuSet fullCpuSet() {
  // Somebody may have confined this very process. A thread that asks for everything gets what there is, cut to
  // the container's share by the kernel; and it takes nothing from the main thread to try.
  CpuSet full;
  try {
    std::thread([&full] {
      CpuSet::every().applyTo(0);
      full = CpuSet::ofThread(0).value_or(CpuSet{});
    }).join();
  } catch (...) {
    full = CpuSet::ofThread(0).value_or(CpuSet{});
  }
  return full;
}

CpuSet slowCpuSet(const CpuSet& full, const std::string& devices) {
  std::array<char, 4096> room;
  CpuSet slow;
  if (const auto list = readSystemFile(AT_FDCWD, (devices + "/cpu_atom/cpus").c_str(), room)) {
    slow = CpuSet::parse(*list).value_or(CpuSet{}) & full;
  } else {
    long least = -1;
    for (int i = 0; i <= full.last(); ++i) {
      if (!full.has(i)) continue;
      const auto text =
          readSystemFile(AT_FDCWD, fmt::format("{}/system/cpu/cpu{}/cpu_capacity", devices, i).c_str(), room);
      const auto capacity = text ? numberIn<long>(withoutLineFeed(*text)) : std::nullopt;
      if (!capacity) {  // untold for one: nothing to compare
        slow = CpuSet{};
        break;
      }
      if (least < 0 || *capacity < least) {
        least = *capacity;
        slow = CpuSet{};
      }
      if (*capacity == least) slow.add(i);
    }
  }
  const bool tellsApart = slow.count() > 0 && !(slow == full);
  if (tellsApart || full.count() == 0) return slow;
  CpuSet one;
  one.add(full.last());
  return one;
}

}  // namespace tovi
