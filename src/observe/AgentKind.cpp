#include "observe/AgentKind.h"

#include <limits>

namespace tovi {

const std::vector<AgentKind>& AgentKind::all() {
  static const std::vector<AgentKind> kinds{
      {"claude-code",
       "Claude Code",
       {"claude"},
       {"@anthropic-ai/claude-code", "/claude-code/", "/bin/claude"},
       {".claude/projects"},
       0.02},
      {"codex", "Codex", {"codex"}, {"@openai/codex", "/bin/codex"}, {".codex/sessions"}, 0.02},
      {"gemini", "Gemini CLI", {"gemini"}, {"@google/gemini-cli", "/bin/gemini"}, {".gemini/tmp"}, 0.02},
      {"cursor-agent", "Cursor Agent", {"cursor-agent"}, {"cursor-agent"}, {}, 0.02},
      {"opencode", "OpenCode", {"opencode"}, {"opencode-ai"}, {}, 0.02},
      {"aider", "Aider", {"aider"}, {"/bin/aider", "aider-chat"}, {}, 0.02},
      {"copilot", "Copilot CLI", {}, {"@github/copilot"}, {}, 0.02},
      {"amp", "Amp", {}, {"@sourcegraph/amp"}, {}, 0.02},
      // A local model server draws power while it only waits.
      {"ollama", "Ollama", {"ollama"}, {}, {}, 0.5},
  };
  return kinds;
}

const AgentKind& AgentKind::claudeApp() {
  static const AgentKind kind{"claude-app", "Claude app", {}, {}, {}, 0.12};
  return kind;
}

bool AgentKind::isInterpreter(std::string_view executable) {
  static const std::set<std::string, std::less<>> names{"node", "bun", "deno", "python", "python3", "Python"};
  return names.contains(executable) || executable.starts_with("python");
}

AgentKind AgentKind::custom(const CustomAgent& agent) {
  return {"custom:" + agent.name,        agent.name, {agent.executables.begin(), agent.executables.end()}, {}, {},
          agent.idleWatts.value_or(0.05)};
}

AgentKind AgentKind::watched(const WatchedApp& app) { return {"app:" + app.id, app.name, {}, {}, {}, 0.15}; }

AgentKind AgentKind::request(const std::string& process) {
  // No draw makes a request active: it counts for as long as it is held.
  return {"request:" + process, process, {}, {}, {}, std::numeric_limits<double>::infinity()};
}

}  // namespace tovi
