// The one wording of a span of minutes and hours.
#pragma once

#include <string>

namespace tovi::PanelFormat {

// Whole minutes, rounded down: "0 min", "59 min", "1 h", "1 h 30 min"; from ten hours on only the hours.
std::string minutes(double seconds);
std::string hm(double hours);

// "89 min" below 90 minutes, from there "1.5 hours", "2 hours".
std::string duration(double minutes);

}  // namespace tovi::PanelFormat
