// Dates in words and in figures.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi::dates {

std::string iso8601(Date date);  // "2026-01-05T08:00:00Z", whole seconds
std::optional<Date> parseIso8601(std::string_view text);

// The time of day in the short form of the person's locale: "07:30", or "7:30 AM" where a day has two halves.
std::string shortTime(Date date);

// The day in the order of the person's locale with the month's short name, and the time: "Jan 5, 2026, 07:30".
std::string mediumDate(Date date);

// Today, by the local calendar at `now`, at this hour and minute: the first of two such times where clocks go back, and
// the first moment after the gap where they go forward over it.
std::optional<Date> todayAt(Date now, int hour, int minute);

// The same time of day, so many days later.
Date addDays(Date date, int days);

}  // namespace tovi::dates
