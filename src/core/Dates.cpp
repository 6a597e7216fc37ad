#include "core/Dates.h"

#include <fmt/format.h>
#include <langinfo.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tovi::dates {

namespace {

// Far beyond any clock, and still a year that calendars print.
std::optional<std::time_t> wholeSeconds(Date date) {
  const double seconds = std::floor(unixSeconds(date));
  if (!(std::abs(seconds) < 1e11)) return std::nullopt;
  return static_cast<std::time_t>(seconds);
}

bool localeHasTwoHalves() {
  const char* format = nl_langinfo(T_FMT);
  return std::strstr(format, "%p") != nullptr || std::strstr(format, "%r") != nullptr ||
         std::strstr(format, "%I") != nullptr || std::strstr(format, "%l") != nullptr;
}

}  // namespace

std::string iso8601(Date date) {
  const auto seconds = wholeSeconds(date);
  if (!seconds) return {};
  std::tm utc{};
  if (gmtime_r(&*seconds, &utc) == nullptr) return {};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                     utc.tm_hour, utc.tm_min, utc.tm_sec);
}

std::optional<Date> parseIso8601(std::string_view text) {
  const std::string copy{text};
  std::tm utc{};
  int used = 0;
  if (std::sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ%n", &utc.tm_year, &utc.tm_mon, &utc.tm_mday, &utc.tm_hour,
                  &utc.tm_min, &utc.tm_sec, &used) != 6 ||
      used != static_cast<int>(copy.size())) {
    return std::nullopt;
  }
  if (utc.tm_mon < 1 || utc.tm_mon > 12 || utc.tm_mday < 1 || utc.tm_mday > 31 || utc.tm_hour < 0 || utc.tm_hour > 23 ||
      utc.tm_min < 0 || utc.tm_min > 59 || utc.tm_sec < 0 || utc.tm_sec > 60) {
    return std::nullopt;
  }
  utc.tm_year -= 1900;
  utc.tm_mon -= 1;
  return dateFromUnix(static_cast<double>(timegm(&utc)));
}

std::string shortTime(Date date) {
  const auto seconds = wholeSeconds(date);
  if (!seconds) return {};
  std::tm local{};
  if (localtime_r(&*seconds, &local) == nullptr) return {};
  if (!localeHasTwoHalves()) return fmt::format("{:02}:{:02}", local.tm_hour, local.tm_min);
  std::array<char, 32> half{};
  const std::size_t length = std::strftime(half.data(), half.size(), "%p", &local);
  const int hour = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
  return fmt::format("{}:{:02} {}", hour, local.tm_min, std::string_view(half.data(), length));
}

std::optional<Date> todayAt(Date now, int hour, int minute) {
  const auto seconds = wholeSeconds(now);
  if (!seconds) return std::nullopt;
  std::tm local{};
  if (localtime_r(&*seconds, &local) == nullptr) return std::nullopt;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = 0;
  local.tm_isdst = -1;
  const std::time_t at = std::mktime(&local);
  if (at == static_cast<std::time_t>(-1)) return std::nullopt;
  return dateFromUnix(static_cast<double>(at));
}

Date addDays(Date date, int days) {
  const auto seconds = wholeSeconds(date);
  std::tm local{};
  if (!seconds || localtime_r(&*seconds, &local) == nullptr) return date;
  local.tm_mday += days;
  local.tm_isdst = -1;
  const std::time_t at = std::mktime(&local);
  return at == static_cast<std::time_t>(-1) ? date : dateFromUnix(static_cast<double>(at));
}

}  // namespace tovi::dates
