#include "core/Dates.h"

#include <fmt/format.h>
#include <langinfo.h>

#include <algorithm>
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

// The calendar's fields taken as a time of Greenwich: what the clock on the wall says, as a number.
std::time_t wallSeconds(std::time_t at) {
  std::tm local{};
  localtime_r(&at, &local);
  return timegm(&local);
}

// The first instant of that day at which the clock on the wall says `hour`:`minute`, or has passed it.
std::time_t instantOf(const std::tm& day, int hour, int minute) {
  std::tm asked{};
  asked.tm_year = day.tm_year;
  asked.tm_mon = day.tm_mon;
  asked.tm_mday = day.tm_mday;
  asked.tm_hour = hour;
  asked.tm_min = minute;
  const std::time_t wanted = timegm(&asked);
  // Between these two lie the few hours in which the instant is, whatever the zone; a change of clocks is a jump there.
  // Before the instant the wall is behind, except right after clocks went back, which the first hit comes before.
  constexpr std::time_t kMostAhead = 15 * 3600;  // of Greenwich, and behind
  constexpr std::time_t kMinute = 60;
  for (std::time_t at = wanted - kMostAhead; at <= wanted + kMostAhead; at += kMinute) {
    if (wallSeconds(at) >= wanted) return at;
  }
  return wanted;
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

std::string mediumDate(Date date) {
  const auto seconds = wholeSeconds(date);
  std::tm local{};
  if (!seconds || localtime_r(&*seconds, &local) == nullptr) return {};
  std::array<char, 32> name{};
  const std::string month(name.data(), std::strftime(name.data(), name.size(), "%b", &local));
  const int year = local.tm_year + 1900;
  const std::string_view order = nl_langinfo(D_FMT);
  const std::size_t dayAt = std::min(order.find("%d"), order.find("%e"));
  const std::size_t monthAt = std::min({order.find("%m"), order.find("%b"), order.find("%D")});
  const std::string day = order.starts_with("%Y") ? fmt::format("{} {} {}", year, month, local.tm_mday)
                          : monthAt < dayAt       ? fmt::format("{} {}, {}", month, local.tm_mday, year)
                                                  : fmt::format("{} {} {}", local.tm_mday, month, year);
  return day + ", " + shortTime(date);
}

std::optional<Date> todayAt(Date now, int hour, int minute) {
  const auto seconds = wholeSeconds(now);
  if (!seconds) return std::nullopt;
  std::tm day{};
  if (localtime_r(&*seconds, &day) == nullptr) return std::nullopt;
  return dateFromUnix(static_cast<double>(instantOf(day, hour, minute)));
}

Date addDays(Date date, int days) {
  const auto seconds = wholeSeconds(date);
  std::tm local{};
  if (!seconds || localtime_r(&*seconds, &local) == nullptr) return date;
  local.tm_mday += days;
  return dateFromUnix(static_cast<double>(instantOf(local, local.tm_hour, local.tm_min) + local.tm_sec));
}

}  // namespace tovi::dates
