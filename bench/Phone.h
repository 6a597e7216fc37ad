// Whether the phone's road holds on to memory: the real web client and the real channel, for thousands of messages and
// reconnections.
#pragma once

#include "Table.h"

namespace tovi::bench {

void measurePhoneMemory(Table& table, int messages, int reconnections);

}  // namespace tovi::bench
