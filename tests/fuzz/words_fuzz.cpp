// Durations, times and arguments as people, agents and phones give them.

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "commands/Arguments.h"
#include "commands/CLI.h"
#include "commands/CommandCenter.h"
#include "core/Dates.h"
#include "core/Json.h"
#include "core/Text.h"
#include "fuzz/Fuzz.h"

using namespace tovi;
using fuzz::must;

namespace {

constexpr double kWeekMinutes = 7 * 24 * 60;

// Clocks go forward on 29 March 2026 and back on 25 October, both between 1:00 and 3:00.
constexpr double kMoments[] = {1'767'600'000, 1'774'746'000, 1'774'745'999, 1'792'886'400, 1'792'890'030};

bool setZone() {
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  ::tzset();
  return ::timezone == -3600;
}

void durationIsSound(std::string_view text) {
  const auto minutes = CLI::parseDuration(text);
  if (!minutes) return;
  must(*minutes > 0 && *minutes <= kWeekMinutes, "a duration is above zero and at most a week");
  must(text.find_first_of("0123456789") != std::string_view::npos || text.find_first_of("iI") != std::string_view::npos,
       "a duration has digits");
  for (char letter : text) must(static_cast<unsigned char>(letter) < 0x80, "a duration is ASCII");
}

void wakeTimeIsSound(std::string_view text, double now) {
  const auto wake = CommandCenter::parseWakeTime(text, dateFromUnix(now));
  if (!wake) return;
  const double ahead = unixSeconds(*wake) - now;
  must(ahead > 60, "a wake is more than a minute ahead");
  if (text.find(':') == std::string_view::npos) {
    must(ahead < 7 * 24 * 3600, "a wake is less than a week ahead");
    return;
  }
  // Two nights of 25 hours don't follow each other, but a day may begin in one and end after it.
  must(ahead <= 26 * 3600, "the next such time comes within a day");
  const auto seconds = static_cast<std::time_t>(unixSeconds(*wake));
  std::tm local{};
  localtime_r(&seconds, &local);
  const auto parts = text::pieces(text::trimmed(text), ":");
  if (parts.size() != 2) return;  // what is no number between them doesn't count
  const int hour = std::atoi(std::string{parts[0]}.c_str()), minute = std::atoi(std::string{parts[1]}.c_str());
  const bool inTheGap = local.tm_hour == 3 && hour == 2;
  must((local.tm_hour == hour && local.tm_min == minute) || inTheGap, "the clock on the wall shows the time asked for");
}

void dateComesBack(std::string_view text) {
  const auto date = dates::parseIso8601(text);
  if (!date) return;
  const std::string written = dates::iso8601(*date);
  must(dates::parseIso8601(written) == date, "a date is read as it was written");
}

void argumentsAreSound(const json::Value& object) {
  const Arguments arguments(object);
  for (const auto& [key, value] : object.items()) {
    must(arguments.has(key) && arguments.value(key) != nullptr, "an argument that is there is seen");
    for (const double most : {0.0, 23.0, 2147483647.0}) {
      const auto number = arguments.number(key, most);
      must(!number || (std::isfinite(*number) && *number >= 0 && *number <= most), "a number is within its bounds");
    }
    must(arguments.text(key).has_value() == value.is_string(), "a text is a text");
    const auto flag = arguments.flag(key);
    must(flag.has_value() || !(value.is_boolean() || value.is_number()), "a number or boolean is a flag");
    if (!value.is_string()) continue;
    durationIsSound(*arguments.text(key));
    wakeTimeIsSound(*arguments.text(key), kMoments[0]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool zoned = setZone();
  must(zoned, "the time zone is known");
  const std::string_view text = fuzz::textOf(data, size);
  durationIsSound(text);
  for (const double now : kMoments) wakeTimeIsSound(text, now);
  dateComesBack(text);
  if (const auto object = json::parseObject(text)) argumentsAreSound(*object);
  return 0;
}
