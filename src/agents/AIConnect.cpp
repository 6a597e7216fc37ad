#include "agents/AIConnect.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "agents/CodexConfig.h"
#include "agents/ForeignFile.h"
#include "agents/LosslessJson.h"
#include "core/Json.h"
#include "core/Shell.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

// Where in which JSON file an agent keeps its servers.
struct AIConnect::JsonTarget {
  std::string_view file;  // below the home folder
  const char* servers;    // key of the top-level object, itself an object with a key for each server
  const char* server;     // ours
  bool typed;             // an entry says how it is talked to
  std::string_view done;
};

const AIConnect::JsonTarget AIConnect::kClaudeCode{".claude.json", "mcpServers", "tovi", true,
                                                   "Added to Claude Code (~/.claude.json). New sessions can use Tovi."};
const AIConnect::JsonTarget AIConnect::kClaudeApp{"Library/Application Support/Claude/claude_desktop_config.json",
                                                  "mcpServers", "tovi", false,
                                                  "Added to the Claude app. Restart it to pick Tovi up."};

namespace {

// Where an application lies that cannot tell its own path.
constexpr char kUsualExecutable[] = "/Applications/Tovi.app/Contents/MacOS/Tovi";
constexpr char kClaudeApplication[] = "/Applications/Claude.app";
constexpr char kCodexConfig[] = ".codex/config.toml";
constexpr char kCodexUnreadable[] = "Couldn't read ~/.codex/config.toml, so I left it alone.";

bool isFile(const Machine& machine, const std::string& path) {
  const auto status = machine.files.status(path);
  return status && status->kind == FileStatus::Kind::file;
}

}  // namespace

std::string AIConnect::inHome(std::string_view path) const {
  return fmt::format("{}/{}", machine_.surroundings.home, path);
}

ServerCommand AIConnect::serverCommand(bool cliInstalled) const {
  const Surroundings& surroundings = machine_.surroundings;
  if (cliInstalled) return {surroundings.localBin + "/tovi", {"mcp"}};
  return {surroundings.executable.empty() ? kUsualExecutable : surroundings.executable, {"cli", "mcp"}};
}

std::optional<std::string> AIConnect::claudeCodeBinary() const {
  for (const std::string& path :
       {inHome(".claude/local/claude"), inHome(".local/bin/claude"), std::string{"/opt/homebrew/bin/claude"},
        machine_.surroundings.localBin + "/claude", inHome(".npm-global/bin/claude")}) {
    if (isFile(machine_, path)) return path;
  }
  return std::nullopt;
}

bool AIConnect::claudeCodeInstalled() const {
  return claudeCodeBinary() || machine_.files.exists(inHome(kClaudeCode.file));
}

bool AIConnect::codexInstalled() const {
  const auto status = machine_.files.status(inHome(".codex"));
  return status && status->kind == FileStatus::Kind::folder;
}

bool AIConnect::claudeAppInstalled() const { return machine_.files.exists(kClaudeApplication); }

bool AIConnect::connected(const JsonTarget& target) const {
  const auto text = machine_.files.read(inHome(target.file));
  const auto object = text ? json::parseObject(*text) : std::nullopt;
  const json::Value* servers = object ? json::member(*object, target.servers) : nullptr;
  return servers != nullptr && json::member(*servers, target.server) != nullptr;
}

bool AIConnect::claudeCodeConnected() const { return connected(kClaudeCode); }
bool AIConnect::claudeAppConnected() const { return connected(kClaudeApp); }

bool AIConnect::codexConnected() const {
  const std::string text = machine_.files.read(inHome(kCodexConfig)).value_or("");
  const auto items = tomlItems(text);
  return items && (codexToviRange(*items) || codexInlineTovi(text));
}

std::string AIConnect::connectClaudeCode(const ServerCommand& server) const {
  if (const auto binary = claudeCodeBinary()) {
    const Shell shell(machine_.commands);
    shell.run(*binary, {"mcp", "remove", "--scope", "user", "tovi"});  // fails where there is none, as usual
    std::vector<std::string> add{"mcp", "add", "--scope", "user", "tovi", "--", server.command};
    add.insert(add.end(), server.args.begin(), server.args.end());
    if (shell.run(*binary, add).code == 0) {
      return "Added to Claude Code for all projects. New sessions can use Tovi.";
    }
  }
  return editJSON(kClaudeCode, server);
}

std::string AIConnect::connectClaudeApp(const ServerCommand& server) const { return editJSON(kClaudeApp, server); }

std::string AIConnect::editJSON(const JsonTarget& target, const ServerCommand& server) const {
  const ForeignFile file(machine_, inHome(target.file));
  if (!file.readable()) return fmt::format("Couldn't read {}, so I left it alone.", file.name());
  const auto before = lossless::parse(file.exists() ? file.text() : "{}");
  if (!before) return fmt::format("{} isn't valid JSON, so I left it alone.", file.name());

  auto after = *before;
  lossless::Object& servers = after[target.servers];
  if (!servers.is_object()) servers = lossless::Object::object();
  servers[target.server] = {{"command", server.command}, {"args", server.args}};
  if (target.typed) servers[target.server]["type"] = "stdio";
  if (after == *before) return std::string{target.done};

  const std::string failed = fmt::format("Couldn't write {}", file.name());
  if (file.readOnly()) return failed;
  if (file.exists() && !file.backUp()) {
    return fmt::format("Couldn't save a backup of {}, so I left it alone.", file.name());
  }
  return file.replace(lossless::pretty(after)) ? failed : std::string{target.done};
}

std::string AIConnect::connectCodex(const ServerCommand& server) const {
  const ForeignFile file(machine_, inHome(kCodexConfig));
  if (!file.readable()) return kCodexUnreadable;
  if (codexInlineTovi(file.text())) return std::string{kHandWritten};
  const auto updated = codexUpdated(file.text(), server.command, server.args);
  if (!updated) return kCodexUnreadable;

  const std::string done = "Added to Codex (~/.codex/config.toml). New sessions can use Tovi.";
  if (*updated == file.text()) return done;
  if (file.exists() && !file.readOnly() && !file.backUp()) {
    return fmt::format("Couldn't save a backup of {}, so I left it alone.", file.name());
  }
  const auto failure = file.replace(*updated);
  return failure ? fmt::format("Couldn't write Codex's config: {}", *failure) : done;
}

}  // namespace tovi
