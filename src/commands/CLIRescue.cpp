// Words for the time when something is wrong: they look at the machine itself and put things back without the
// application.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "commands/Peers.h"
#include "core/Json.h"
#include "observe/Sensors.h"
#include "safety/Heartbeat.h"
#include "safety/Setup.h"
#include "safety/Watchdog.h"

namespace tovi {

namespace {

constexpr Seconds kQuitTimeout{2};
constexpr Seconds kQuitStep{0.1};
constexpr int kQuitSteps = 50;

const char* watchdogState(const Setup& setup) {
  if (!setup.watchdogReady()) return "not installed";
  return setup.watchdogLoaded() ? "running" : "installed but not loaded (open Tovi › Settings › Set Up)";
}

const char* word(std::optional<bool> value) { return value ? (*value ? "true" : "false") : "unknown"; }

// Below each other; among them are names that other programs have given themselves.
std::string listed(CLI::Context& context, const std::vector<std::string>& changes) {
  std::string lines;
  for (const std::string& change : changes) lines += "\n  " + context.output.shown(change);
  return lines;
}

}  // namespace

bool CLI::stopApplication(Context& context) {
  if (!Heartbeat::appIsAlive(context.machine, context.state)) {
    // One that was stopped for long finds this when it goes on, and takes nothing again.
    if (Peers::applicationRuns(context.machine, context.state)) {
      context.client.attempt("quit", nlohmann::json::object(), Seconds{0});
    }
    return true;
  }
  context.client.attempt("quit", nlohmann::json::object(), kQuitTimeout);
  for (int step = 0; step < kQuitSteps; ++step) {
    if (!Heartbeat::appIsAlive(context.machine, context.state)) return true;
    context.sleep(kQuitStep);
  }
  return !Heartbeat::appIsAlive(context.machine, context.state);
}

int CLI::watchdog(Context& context, const Words&) {
  context.output.line(Watchdog::run(context.machine, context.state, false));
  return 0;
}

int CLI::doctor(Context& context, const Words&) {
  const auto line = [&](std::string_view name, std::string_view value) {
    context.output.line(fmt::format("{}: {}", name, context.output.shown(value)));
  };
  const Setup setup(context.machine, context.state);
  const bool alive = Heartbeat::appIsAlive(context.machine, context.state);
  line("Tovi folder", context.state.dir());
  line("App", alive ? "running" : "not running");
  line("Watchdog", watchdogState(setup));
  line("Sleep permission", setup.permissionReady() ? "set up" : "missing (open Tovi to set it up)");
  line("Sleep switched off right now", word(Registry::sleepDisabled(context.machine)));
  const auto changes = Watchdog::outstanding(context.machine, context.state);
  context.output.line("Changes Tovi has made right now:" + (changes.empty() ? " none" : listed(context, changes)));
  if (!alive) return 0;
  const auto reply = context.client.attempt("status", nlohmann::json::object(), kUsualTimeout);
  if (!reply) return 0;
  if (const auto status = json::textAt(*reply, "status")) line("Status", *status);
  if (const auto warning = json::textAt(*reply, "warning")) line("Note", *warning);
  return 0;
}

int CLI::rescue(Context& context, const Words&) {
  stopApplication(context);
  Watchdog::run(context.machine, context.state, true);
  const auto left = Watchdog::outstanding(context.machine, context.state);
  if (!left.empty()) {
    context.output.line("Couldn't undo:" + listed(context, left));
    context.output.line(
        "By hand: sudo pmset -a disablesleep 0 switches sleep back on; quit and reopen any app listed above.");
    return 1;
  }
  context.output.line(
      "Everything Tovi changed is back to how it was. Tovi is stopped; open it again when you want it.");
  return 0;
}

}  // namespace tovi
