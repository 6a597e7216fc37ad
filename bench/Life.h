// The application on a laptop in memory, through days of an ordinary working life.
#pragma once

#include "Table.h"

namespace tovi::bench {

// How fast an engine lives: an agent that works half of each hour, a lid that is closed for a third of the day.
void measureVirtualDays(Table& table, int days);

// What the resident application holds after so many days, against after the first.
void measureYear(Table& table, int days);

}  // namespace tovi::bench
