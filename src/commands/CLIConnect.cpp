// `tovi connect`: adds the MCP server to the agents on this computer.

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agents/AIConnect.h"
#include "commands/CLIContext.h"
#include "safety/Setup.h"

namespace tovi {

namespace {

struct Agent {
  std::array<std::string_view, 2> words;
  const char* name;
  bool (AIConnect::*installed)() const;
  std::string (AIConnect::*connect)(const ServerCommand& server) const;
};

constexpr Agent kAgents[] = {
    {{"claude", "claude-code"}, "Claude Code", &AIConnect::claudeCodeInstalled, &AIConnect::connectClaudeCode},
    {{"codex"}, "Codex", &AIConnect::codexInstalled, &AIConnect::connectCodex},
    {{"claude-app"}, "Claude app", &AIConnect::claudeAppInstalled, &AIConnect::connectClaudeApp},
};

bool goesBy(const Agent& agent, std::string_view word) {
  return !word.empty() && std::ranges::find(agent.words, word) != agent.words.end();
}

}  // namespace

int CLI::connect(Context& context, const Words& words) {
  const AIConnect agents(context.machine);
  const ServerCommand server = agents.serverCommand(Setup(context.machine, context.state).cliInstalled());
  bool any = false, well = true;
  for (const Agent& agent : kAgents) {
    const bool wanted = words.size() > 1 ? goesBy(agent, words[1]) : (agents.*agent.installed)();
    if (!wanted) continue;
    any = true;
    const std::string sentence = (agents.*agent.connect)(server);
    context.output.line(fmt::format("{}: {}", agent.name, sentence));
    well = well && (sentence.starts_with("Added") || sentence == AIConnect::kHandWritten);
  }
  if (!any) context.output.line("No agent found. Use: tovi connect claude | codex | claude-app");
  return any && well ? 0 : 1;
}

std::vector<std::string_view> CLI::connectWords() {
  std::vector<std::string_view> words;
  for (const Agent& agent : kAgents) words.push_back(agent.words.front());
  return words;
}

}  // namespace tovi
