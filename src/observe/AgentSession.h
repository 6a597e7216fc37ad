// One kind of agent at work: all its top-level processes folded together.
#pragma once

#include <optional>
#include <string>

#include "observe/AgentKind.h"
#include "platform/Types.h"

namespace tovi {

struct AgentSession {
  Pid pid = 0;  // of the first instance that was sampled
  AgentKind kind;
  std::optional<std::string> project;  // name of the working folder, or "~"
  Date lastActive = kDistantPast;      // last evidence of work
  double watts = 0;                    // the trees' draw over the last interval, all instances
  std::optional<std::string> detail;   // a request's own name for itself
  bool toolRunning = false;            // a command that the agent started is running
  int instances = 1;

  std::string identity() const;  // kind id, "#", pid

  friend bool operator==(const AgentSession&, const AgentSession&) = default;
};

}  // namespace tovi
