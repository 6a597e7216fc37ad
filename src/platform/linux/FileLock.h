// The kernel's lock on a whole file, waited for no longer than one wants.
#pragma once

#include "platform/Types.h"

namespace tovi {

// Takes the exclusive lock of an open file; false if somebody else still holds it after `patience`, or there can be
// none. The lock goes with the descriptor.
bool lockWithin(int file, Seconds patience);

}  // namespace tovi
