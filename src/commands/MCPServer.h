// A Model Context Protocol server, which an agent starts as its child and talks to in lines of JSON. It keeps no
// state: every tool is a command to the running application, and what it answers is the application's reply.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "commands/MCPTools.h"

namespace tovi {

class MCPServer {
 public:
  using Tool = MCPTools::Tool;

  explicit MCPServer(MCPTools::Session session) : session_(std::move(session)) {}

  static std::span<const Tool> tools() { return MCPTools::all(); }

  // What is to be said to one message, as one line without its end. Absent: nothing; the message was a notification,
  // or no message at all.
  std::optional<std::string> answer(std::string_view message) const;

  // Serves the lines of one file descriptor on another until the input ends or nobody reads the output. The exit
  // code, which is 0.
  int run(int input, int output) const;

 private:
  MCPTools::Session session_;
};

}  // namespace tovi
