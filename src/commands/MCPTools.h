// The tools that an agent can call. One table says all of each: what agents are told about it, its parameters, and
// the command that it sends.
#pragma once

#include <array>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi::MCPTools {

// Whom the tools work for, and their way to the application.
struct Session {
  // The process that started the server. It owns the holds made here: they end with it, and no other session's can
  // be ended from here.
  Pid agent = 0;

  // Sends a command and gives the reply, always an object: after `timeout` at the latest one whose "ok" is false.
  std::function<nlohmann::json(const std::string& command, const nlohmann::json& args, Seconds timeout)> send;
};

struct Parameter {
  std::string_view name;  // empty: none
  std::string_view type;  // as JSON Schema calls it
  std::string_view description;
  bool required = false;
  std::array<std::string_view, 4> choices = {};  // empty at the end; none: whatever the type allows
};

struct Tool {
  using Run = nlohmann::json(const Tool& tool, const nlohmann::json& args, const Session& session);

  std::string_view name;
  std::string_view description;
  std::string_view command;
  std::array<Parameter, 4> parameters = {};  // empty at the end
  Seconds timeout{8};
  Run* run = nullptr;  // null: sends the command with the arguments as they are

  // The JSON Schema of its arguments.
  nlohmann::json schema() const;

  // The result, always an object; "ok" is false in it if something went wrong. Only arguments that stand in the
  // table go on, and null is taken for none.
  nlohmann::json call(const nlohmann::json& args, const Session& session) const;
};

// In the order in which they are listed.
std::span<const Tool> all();

const Tool* find(std::string_view name);  // null: there is none of this name

}  // namespace tovi::MCPTools
