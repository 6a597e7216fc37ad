// The times at which people order a wake.

#include <cmath>
#include <cstdint>
#include <vector>

#include "commands/CommandCenter.h"
#include "core/Dates.h"
#include "core/Text.h"

namespace tovi {

namespace {

constexpr double kLeastAhead = 60;  // seconds
constexpr double kWeek = 7 * 24 * 3600;

}  // namespace

std::optional<Date> CommandCenter::parseWakeTime(std::string_view text, Date now) {
  text = text::trimmed(text);
  if (const auto seconds = text::decimal<double>(text); seconds && std::isfinite(*seconds)) {
    const double ahead = *seconds - unixSeconds(now);
    return ahead > kLeastAhead && ahead < kWeek ? std::optional{dateFromUnix(*seconds)} : std::nullopt;
  }
  std::vector<std::int64_t> parts;
  for (const std::string_view piece : text::pieces(text, ":")) {
    if (const auto number = text::decimal<std::int64_t>(piece)) parts.push_back(*number);
  }
  if (parts.size() != 2 || parts[0] < 0 || parts[0] > 23 || parts[1] < 0 || parts[1] > 59) return std::nullopt;
  const auto today = dates::todayAt(now, static_cast<int>(parts[0]), static_cast<int>(parts[1]));
  if (!today) return std::nullopt;
  return secondsBetween(now, *today) > kLeastAhead ? *today : dates::addDays(*today, 1);
}

}  // namespace tovi
