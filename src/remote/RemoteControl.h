// The resident end of the phone's road: takes one command after another from the channel, lets the guard see it, hands
// it to the same handler as the command line does, and answers. It never sends anything of its own accord.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/Field.h"
#include "remote/RemoteChannel.h"
#include "remote/RemoteGuard.h"
#include "remote/RemoteSettings.h"

namespace tovi {

class Engine;
class Http;

class RemoteControl {
 public:
  using Result = std::function<void(const nlohmann::json& result)>;
  // Runs one command; the result exactly once, at once or later. What CommandCenter::handle does.
  using Run = std::function<void(std::string_view command, const nlohmann::json& args, Result result)>;
  using Panel = std::function<nlohmann::json()>;  // the panel as it stands

  // Connects at once if the stored settings say so. Engine and http must outlive this object.
  RemoteControl(Engine& engine, Http& http, Run run, Panel panel);
  ~RemoteControl();
  RemoteControl(const RemoteControl&) = delete;
  RemoteControl& operator=(const RemoteControl&) = delete;

  bool enabled() const;

  // Makes the pairing if there is none, or a new one, and connects. Where it couldn't be saved `status` says so and
  // everything stays as it was.
  void enable(bool newKey);

  // Keeps the pairing for the next time. False: it is off, but the stored settings still say that it is on.
  bool disable();

  const RemoteSettings& settings() const { return settings_; }

  Field<std::optional<std::string>> status;  // in words for the person; also the engine's `remoteStatus`
  RemoteGuard guardian;

 private:
  void start();
  void handle(const RemoteChannel::Message& message, const RemoteChannel::Answer& answer);
  void show(const std::optional<std::string>& text);

  Engine& engine_;
  Run run_;
  Panel panel_;
  StateFiles state_;
  RemoteSettings settings_;
  RemoteChannel channel_;
  Registration wake_;
  std::shared_ptr<const bool> alive_;
};

}  // namespace tovi
