// The single place where the running application takes orders from outside its own windows: a command's name with a
// JSON object of arguments in, a JSON object out.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/DelayedCalls.h"
#include "core/Modes.h"
#include "platform/Types.h"

namespace tovi {

class Engine;
class StatusController;

class CommandCenter {
 public:
  using Reply = std::function<void(const nlohmann::json&)>;

  // Listens for requests from now on. Both must outlive this object.
  CommandCenter(Engine& engine, StatusController& ui);

  // Runs one request as sent by a client and writes the reply's file. Anything that isn't a request is dropped
  // without a word, for there is nobody to answer.
  void receive(const std::string& text);

  // Runs one command. `reply` is called exactly once, at once or later; never if this object goes first.
  void handle(std::string_view command, const nlohmann::json& args, Reply reply);

  static std::optional<Mode> parseMode(std::string_view text) { return tovi::parseMode(text); }
  static std::optional<Preset> parsePreset(std::string_view text) { return tovi::parsePreset(text); }

  // "HH:MM", 24 hours: the next such time more than a minute ahead. Or seconds since 1970, more than a minute and less
  // than a week ahead. Absent for anything else.
  static std::optional<Date> parseWakeTime(std::string_view text, Date now);

 private:
  Engine& engine_;
  StatusController& ui_;
  std::shared_ptr<const bool> alive_;
  DelayedCalls later_;
  Registration requests_;
};

}  // namespace tovi
