#include "observe/AgentSession.h"

namespace tovi {

std::string AgentSession::identity() const { return kind.id + "#" + std::to_string(pid); }

}  // namespace tovi
