// Proof that the application lives: a small file written at every tick.
#pragma once

namespace tovi {

struct Machine;
class StateFiles;

namespace Heartbeat {
void beat(const Machine& machine, const StateFiles& state);
bool appIsAlive(const Machine& machine, const StateFiles& state);
}  // namespace Heartbeat

}  // namespace tovi
