// Other copies of the application: whether one serves this person's state folder, and where it lies.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/Types.h"

namespace tovi {

class StateFiles;
struct Machine;

namespace Peers {

// The lock that the one primary copy holds for its whole life; null if another holds it. Command lines look at it for
// an instant, so a copy that is starting tries again a few times before it believes that somebody is there.
std::unique_ptr<Files::Lock> takeLock(const Machine& machine, const StateFiles& state);

// Whether somebody holds that lock right now.
bool applicationRuns(const Machine& machine, const StateFiles& state);

struct Peer {
  std::optional<Pid> pid;
  std::optional<std::string> bundlePath;

  friend bool operator==(const Peer&, const Peer&) = default;
};

// To be asked by a copy that didn't get the lock. A copy that has it is alone: what else runs under the same name
// serves other state folders (another home, say) and is none of its business. Without the lock there is a holder,
// so the list is never empty: if no process looks like it, it is one peer of which nothing is known.
std::vector<Peer> holders(const Machine& machine);

// The ".app" folder that an executable lies in, else the executable's own path.
std::string bundlePath(const std::string& executable);

}  // namespace Peers
}  // namespace tovi
