// Small sums that the reports have in common.
#pragma once

#include <cstdint>

#include "observe/Sensors.h"

namespace tovi::reports {

// The machine runs off its battery at a rate that means something.
bool drains(const BatteryReading& battery);

// A figure without its fraction; what no clock and no battery reaches is cut, and what is no number is 0.
std::int64_t wholeNumber(double value);

}  // namespace tovi::reports
