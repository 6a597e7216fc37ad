// The built-in screen with the lid shut: dark, or off altogether. Each leaves a small file behind before it
// touches anything, so that the screen comes back even after a crash.
#pragma once

#include <optional>

namespace tovi {

struct Machine;
class StateFiles;

namespace DisplayPower {
bool canSwitch(const Machine& machine);
bool turnOffBuiltIn(const Machine& machine, const StateFiles& state);
// True also if there is nothing to do; false keeps the file for another try.
bool restoreBuiltIn(const Machine& machine, const StateFiles& state);
bool sessionLocked(const Machine& machine);
}  // namespace DisplayPower

namespace Brightness {
std::optional<float> get(const Machine& machine);  // of the built-in panel, 0.0 to 1.0
void dimForClosedLid(const Machine& machine, const StateFiles& state);
void restore(const Machine& machine, const StateFiles& state);
}  // namespace Brightness

namespace LockSetting {
// Seconds after which a dark screen asks for a password; absent if nobody can say.
std::optional<int> gracePeriod(const Machine& machine);
}  // namespace LockSetting

// Whether a screen that isn't built in is connected.
bool externalDisplayConnected(const Machine& machine);

}  // namespace tovi
