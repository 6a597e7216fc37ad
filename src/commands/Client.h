// Asks the running application for something and waits for the answer; starts the application if none runs.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace tovi {

class StateFiles;
struct Machine;

class Client {
 public:
  using Sleep = std::function<void(Seconds)>;  // passes time; how is the caller's choice

  Client(const Machine& machine, const StateFiles& state, Sleep sleep)
      : machine_(machine), state_(state), sleep_(std::move(sleep)) {}

  // Absent: no answer within `timeout`, or nobody is there to give one, which is known at once.
  std::optional<nlohmann::json> attempt(const std::string& command, const nlohmann::json& args, Seconds timeout) const;

  // The same, and if there is no answer because no application runs, one is started and asked again. Always an
  // object; "ok" is false in it if nobody answered.
  nlohmann::json send(const std::string& command, const nlohmann::json& args, Seconds timeout) const;

  // The same for callers who wait no longer than `timeout` for all of it, the start of an application included.
  nlohmann::json sendWithin(const std::string& command, const nlohmann::json& args, Seconds timeout) const;

 private:
  std::optional<nlohmann::json> takeReply(const std::string& path) const;
  nlohmann::json send(const std::string& command, const nlohmann::json& args, Seconds timeout, Seconds deadline) const;

  const Machine& machine_;
  const StateFiles& state_;
  Sleep sleep_;
};

}  // namespace tovi
