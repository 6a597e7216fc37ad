// What cleans up when the application can't: run every minute by the launch agent's script, and by `rescue`.
#pragma once

#include <string>
#include <vector>

namespace tovi {

struct Machine;
class StateFiles;

namespace Watchdog {
// "alive", "restored" or "partly restored". With `force` it doesn't ask whether the application lives.
std::string run(const Machine& machine, const StateFiles& state, bool force);
// What is still in force right now, in words.
std::vector<std::string> outstanding(const Machine& machine, const StateFiles& state);
}  // namespace Watchdog

}  // namespace tovi
