#include "remote/RemoteGuard.h"

#include <algorithm>

#include "core/Text.h"

namespace tovi {

namespace {

constexpr std::size_t kLongestId = 64;  // characters
constexpr double kAhead = 60;           // seconds that the phone's clock may be ahead
// One minute longer than the oldest command that counts, so that none outlives the memory of it.
constexpr double kRemembered = RemoteGuard::kWakeMaxAge + kAhead;
constexpr double kRateWindow = 60;
constexpr std::size_t kMostInWindow = 30;

}  // namespace

std::optional<std::string_view> RemoteGuard::check(std::optional<double> t, std::string_view id, double maxAge,
                                                   Date now) {
  if (id.empty() || text::firstCharacters(id, kLongestId).size() != id.size()) return "bad id";
  const double seconds = unixSeconds(now);
  if (!t || !(seconds <= *t + maxAge && *t <= seconds + kAhead)) {
    return "too old or from the future (check the phone's clock)";
  }
  std::erase_if(seen, [&](const auto& entry) { return secondsBetween(entry.second, now) > kRemembered; });
  if (std::ranges::any_of(seen, [&](const auto& entry) { return entry.first == id; })) return "already handled";
  // One from the future was accepted before the clock was set back, and says nothing about the last minute.
  std::erase_if(recent, [&](Date date) { return secondsBetween(date, now) > kRateWindow || date > now; });
  if (recent.size() >= kMostInWindow) return "too many commands, wait a minute";
  seen.emplace_back(id, now);
  recent.push_back(now);
  return std::nullopt;
}

}  // namespace tovi
