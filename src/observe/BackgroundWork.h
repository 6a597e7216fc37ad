// Work that drains a battery behind a shut lid without showing under a clear name: simulators, preview hosts,
// programs that hold the speakers open.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct Machine;
class ProcessTable;

class BackgroundWork {
 public:
  struct Found {
    std::vector<Pid> simulators;       // every process of a running simulator, in no settled order
    std::vector<Pid> previews;         // preview hosts outside a simulator
    std::map<Pid, std::string> audio;  // holders of open audio output, with their names
    bool testsRunning = false;
    bool agentUsesXcode = false;
    int simulatorDevices = 0;  // booted

    friend bool operator==(const Found&, const Found&) = default;
  };

  static Found scan(const Machine& machine, const ProcessTable& all);

  // Holders of audio output; `all` gives the names of live processes.
  static std::map<Pid, std::string> audioHolders(const Machine& machine, const ProcessTable& all);
};

}  // namespace tovi
