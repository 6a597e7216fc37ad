#include "commands/Client.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "commands/Peers.h"
#include "commands/Wire.h"
#include "core/Hold.h"
#include "core/Json.h"
#include "core/StateFiles.h"
#include "platform/Broadcast.h"
#include "platform/Clock.h"
#include "platform/Commands.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

namespace {

// Most answers are there within milliseconds; an energy sample takes a second. The pauses double from one to the other.
constexpr Seconds kShortestPause{0.001};
constexpr Seconds kLongestPause{0.05};

// An application that was started shows its lock long before that, and then it will listen in a moment.
constexpr Seconds kStartTakes{2.5};

}  // namespace

std::optional<nlohmann::json> Client::takeReply(const std::string& path) const {
  const auto text = machine_.files.read(path);
  if (!text) return std::nullopt;
  auto reply = json::parseObject(*text);
  if (reply) machine_.files.remove(path);
  return reply;
}

std::optional<nlohmann::json> Client::attempt(const std::string& command, const nlohmann::json& args,
                                              Seconds timeout) const {
  const std::string id = newUuid();
  const std::string path = Wire::replyPath(machine_, state_, id);
  const std::string request = Wire::request(id, command, args);
  const Seconds deadline = machine_.clock.sinceBoot() + timeout;
  bool posted = false;
  for (Seconds pause = kShortestPause;; pause = std::min(pause * 2, kLongestPause)) {
    if (!posted) {
      const Broadcast::Sent sent = machine_.broadcast.post(request);
      if (sent == Broadcast::Sent::tooLarge) return Wire::failure(Wire::kTooLarge);
      posted = sent == Broadcast::Sent::yes;
      // An application that is just starting will listen in a moment; where none runs waiting is in vain.
      if (!posted && pause == kShortestPause && !Peers::applicationRuns(machine_, state_)) return std::nullopt;
    }
    if (posted) {
      if (auto reply = takeReply(path)) return reply;
    }
    const Seconds left = deadline - machine_.clock.sinceBoot();
    if (left <= Seconds::zero()) return std::nullopt;
    sleep_(std::min(pause, left));
  }
}

nlohmann::json Client::send(const std::string& command, const nlohmann::json& args, Seconds timeout) const {
  return send(command, args, timeout, Seconds{std::numeric_limits<double>::infinity()});
}

nlohmann::json Client::sendWithin(const std::string& command, const nlohmann::json& args, Seconds timeout) const {
  return send(command, args, timeout, machine_.clock.sinceBoot() + timeout);
}

nlohmann::json Client::send(const std::string& command, const nlohmann::json& args, Seconds timeout,
                            Seconds deadline) const {
  const auto left = [&](Seconds most) { return std::min(most, deadline - machine_.clock.sinceBoot()); };
  if (auto reply = attempt(command, args, timeout)) return *reply;
  if (left(timeout) > Seconds::zero() && !Peers::applicationRuns(machine_, state_)) {
    // Of several clients that find nobody one starts the application, and the others wait for it too.
    const auto starting = machine_.files.tryLock(state_.path("start.lock"));
    if (starting) machine_.commands.run("/usr/bin/open", {"-g", "-b", "com.norvane.Tovi"});
    const Seconds started = machine_.clock.sinceBoot() + left(kStartTakes);
    while (!Peers::applicationRuns(machine_, state_) && machine_.clock.sinceBoot() < started) sleep_(kLongestPause);
    // Nothing is asked for after the time, for it would be done all the same.
    if (const Seconds rest = left(timeout); rest > Seconds::zero()) {
      if (auto reply = attempt(command, args, rest)) return *reply;
    }
  }
  return Wire::failure("Tovi didn't answer. Is it running? Open /Applications/Tovi.app");
}

}  // namespace tovi
