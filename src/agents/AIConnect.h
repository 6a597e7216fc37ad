// Adds our MCP server to the agents on this computer: by their own command where there is one, else in their
// configuration files. What can't be read and written back without loss is left alone, and a backup comes before a
// change.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi {

struct Machine;

// How an agent starts the server.
struct ServerCommand {
  std::string command;  // absolute path
  std::vector<std::string> args;

  friend bool operator==(const ServerCommand&, const ServerCommand&) = default;
};

class AIConnect {
 public:
  explicit AIConnect(const Machine& machine) : machine_(machine) {}

  // By the command line tool's link where it is installed, else by the application's own executable.
  ServerCommand serverCommand(bool cliInstalled) const;

  // The first of the usual places where one lies.
  std::optional<std::string> claudeCodeBinary() const;

  bool claudeCodeInstalled() const;
  bool codexInstalled() const;
  bool claudeAppInstalled() const;

  // Whether the agent's file names our server. False too if it can't be read.
  bool claudeCodeConnected() const;
  bool codexConnected() const;
  bool claudeAppConnected() const;

  // Each returns one sentence for the person, which begins with "Added" if it worked. Done twice they change nothing
  // the second time.
  std::string connectClaudeCode(const ServerCommand& server) const;
  std::string connectCodex(const ServerCommand& server) const;
  std::string connectClaudeApp(const ServerCommand& server) const;

  // What connectCodex() says of an entry in a form that isn't ours: no failure.
  static constexpr std::string_view kHandWritten = "Codex already has an tovi entry written by hand; left it as it is.";

 private:
  struct JsonTarget;
  static const JsonTarget kClaudeCode, kClaudeApp;

  bool connected(const JsonTarget& target) const;
  std::string editJSON(const JsonTarget& target, const ServerCommand& server) const;
  std::string inHome(std::string_view path) const;

  const Machine& machine_;
};

}  // namespace tovi
