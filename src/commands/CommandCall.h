// One command under way: whom it may ask, and the way back to whoever sent it.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "commands/Arguments.h"

namespace tovi {

class DelayedCalls;
class Engine;
class StatusController;

struct CommandCall {
  Engine& engine;
  StatusController& ui;
  std::function<void(const nlohmann::json&)> reply;  // called exactly once, at once or later
  std::weak_ptr<const bool> center;                  // gone: the program ends, and nobody is to be answered
  DelayedCalls& later;                               // for what follows after a while; it goes with the center

  void succeed() const;                             // "ok" and the status line
  void succeed(const nlohmann::json& extra) const;  // and the keys of `extra`
  void fail(std::string_view error) const;
};

// The commands, by topic. Each answers through the call.
namespace handlers {

using Handler = void(const Arguments& args, const CommandCall& call);

// What it is doing.
Handler status, energy, config;
// Staying awake and going to sleep.
Handler mode, track, sleepNow, hold, release, releaseOwn, releasePid, wake, wakeAt, overrideFloor;
// Presets, rules and lists.
Handler preset, rule, watch, agent;
// The program itself.
Handler open, settings, snapshot, island, quit;
// Settings under their public names.
Handler schema, set;
// Watts.
Handler power, powerTest, measure, panel;

}  // namespace handlers
}  // namespace tovi
