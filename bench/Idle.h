// The built program while nothing happens: alone, with the phone's stream open, and beside the loop that people write
// by hand.
#pragma once

#include <chrono>

#include "Children.h"
#include "Table.h"

namespace tovi::bench {

// The rows need a table with kFew processes beside them, and one application at a time: two would tick at the same
// moment, by the same second's clock, and wait for each other in /proc.

// An application that is there already, and the loop over the same span.
void watchIdle(Table& table, const Resident& app, std::chrono::seconds span);

// An application of its own that is paired with a phone.
void watchWithPhone(Table& table, std::chrono::seconds span);

}  // namespace tovi::bench
