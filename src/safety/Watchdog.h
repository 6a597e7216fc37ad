// What cleans up when the application can't: run every minute by the launch agent's script, and by `rescue`.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Files.h"

namespace tovi {

struct Machine;
class StateFiles;

namespace Watchdog {
// One puts things back at a time, be it a watchdog or an application that starts. Waits a few seconds for its turn;
// null: it didn't come, and one goes on without.
std::unique_ptr<Files::Lock> turn(const Machine& machine, const StateFiles& state);

// "alive", "restored" or "partly restored". With `force` it doesn't ask whether the application lives.
std::string run(const Machine& machine, const StateFiles& state, bool force);
// What is still in force right now, in words.
std::vector<std::string> outstanding(const Machine& machine, const StateFiles& state);
}  // namespace Watchdog

}  // namespace tovi
