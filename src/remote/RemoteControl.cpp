#include "remote/RemoteControl.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "platform/PowerRegistry.h"

namespace tovi {

namespace {

using Json = nlohmann::json;

// Of an id and a command's name that are told back; longer ones are refused anyway.
constexpr std::size_t kMostToldBack = 256;  // characters

Json envelope(const std::string& id, Date now) {
  return {{"re", text::firstCharacters(id, kMostToldBack)},
          {"t", static_cast<std::int64_t>(std::floor(unixSeconds(now)))}};
}

// Seconds since 1970 by the phone's clock; absent unless between then and the year 10000.
std::optional<double> sentAt(const Json& request) {
  constexpr double kYear10000 = 253402300800.0;
  const auto seconds = json::numberAt(request, "t");
  return seconds && *seconds >= 0 && *seconds < kYear10000 ? seconds : std::nullopt;
}

std::string finished(Json body, const std::string& id, Date now) {
  body.update(envelope(id, now));
  return json::compact(body);
}

// What a reply may take beside an id of odd characters, which are longer in JSON than they look.
std::size_t roomBeside(const std::string& id, Date now) {
  const std::size_t taken = json::compact(envelope(id, now)).size();
  return std::min(RemoteCrypto::kMostReplyBytes, RemoteCrypto::kMostPlainBytes - taken);
}

Json refusal(std::string_view error) { return {{"ok", false}, {"error", error}}; }

}  // namespace

RemoteControl::RemoteControl(Engine& engine, Http& http, Run run, Panel panel)
    : engine_(engine),
      run_(std::move(run)),
      panel_(std::move(panel)),
      state_(engine.machine()),
      settings_(RemoteSettings::load(state_)),
      channel_(
          engine.machine(), http,
          [this](const RemoteChannel::Message& message, const RemoteChannel::Answer& answer) {
            handle(message, answer);
          },
          [this](const std::string& text) { show(text); }),
      alive_(std::make_shared<const bool>(true)) {
  const auto startIfEnabled = [this] {
    if (enabled()) start();
  };
  startIfEnabled();
  engine_.onCheckIn = startIfEnabled;
  wake_ = engine_.machine().power.onDidWake(startIfEnabled);
}

RemoteControl::~RemoteControl() { engine_.onCheckIn = nullptr; }

bool RemoteControl::enabled() const { return settings_.enabled && settings_.keyData(); }

void RemoteControl::start() {
  const auto key = settings_.keyData();
  if (!settings_.enabled || !key) return channel_.stop();
  channel_.start(settings_.server, *key);
}

void RemoteControl::enable(bool newKey) {
  RemoteSettings next = settings_;
  if (newKey || !next.keyData()) {
    wipe(next.key);
    next.key = RemoteCrypto::newKey();
  }
  next.enabled = true;
  if (!next.keyData() || !next.save(state_, engine_.machine())) {
    settings_.save(state_, engine_.machine());  // what failed may have been the last step, with the new ones in place
    return show("Couldn't save the pairing key");
  }
  const bool changed = next.key != settings_.key;
  settings_ = next;
  if (changed) channel_.forgetCursor();  // of a stream that is no more
  start();
}

bool RemoteControl::disable() {
  settings_.enabled = false;
  const bool saved = settings_.save(state_, engine_.machine());
  channel_.stop();
  show(std::nullopt);
  return saved;
}

void RemoteControl::show(const std::optional<std::string>& text) {
  status = text;
  engine_.remoteStatus = text;
}

void RemoteControl::handle(const RemoteChannel::Message& message, const RemoteChannel::Answer& answer) {
  const auto request = json::parseObject(message.text);
  if (!request) return answer(std::nullopt);
  const std::string id = json::textAt(*request, "n").value_or("");
  const std::string command = json::textAt(*request, "cmd").value_or("");
  const double maxAge = RemoteGuard::maxAge(command);
  const Date now = engine_.now();
  // What piled up on the relay during a long sleep isn't worth an answer.
  if (message.time && *message.time + maxAge < unixSeconds(now)) return answer(std::nullopt);
  if (const auto refused = guardian.check(sentAt(*request), id, maxAge, now)) {
    return answer(finished(refusal(*refused), id, now));
  }
  if (!RemoteCrypto::isAllowed(command)) {
    const std::string named = text::firstCharacters(command, kMostToldBack);
    return answer(finished(refusal(named + " isn't allowed from the phone"), id, now));
  }
  const Json* args = json::member(*request, "args");
  run_(command, args != nullptr && args->is_object() ? *args : Json::object(),
       [this, id, command, answer, watch = std::weak_ptr(alive_)](const Json& result) {
         if (watch.expired()) return;
         const Date end = engine_.now();
         answer(finished(RemoteCrypto::phoneReply(result, panel_(), command, roomBeside(id, end)), id, end));
       });
}

}  // namespace tovi
