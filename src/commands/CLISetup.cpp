// The one-time set-up and its removal from a terminal, for machines without windows.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "core/Config.h"
#include "safety/Setup.h"
#include "safety/Watchdog.h"

namespace tovi {

namespace {

int failed(CLI::Context& context, std::string_view why) {
  context.output.line(why);
  return 1;
}

// Whatever starts next finds the program switched off and nothing that it should stay awake for.
void switchOff(const CLI::Context& context) {
  Config::setAsideIfBroken(context.state, context.machine.clock);
  Config config;
  if (const auto text = context.state.read("config.json")) config = Config::decode(*text).value_or(Config{});
  config.mode = Mode::off;
  config.alwaysUntil.reset();
  config.modeBeforeAlways.reset();
  context.state.writeAtomically(config.encoded(), Config::path(context.state));
  context.state.remove(context.state.path("runtime.json"));
}

}  // namespace

int CLI::setup(Context& context, const Words&) {
  if (const SetupError error = Setup(context.machine, context.state).run()) return failed(context, *error);
  context.output.line("Tovi is set up.");
  // A running application looks afresh when it is asked for its status; otherwise it would find out much later.
  context.client.attempt("status", nlohmann::json::object(), kUsualTimeout);
  return 0;
}

int CLI::uninstall(Context& context, const Words&) {
  const bool stopped = stopApplication(context);
  if (stopped) {
    switchOff(context);
    Watchdog::run(context.machine, context.state, true);
  }
  auto left = Watchdog::outstanding(context.machine, context.state);
  // What it holds now it would only take again.
  if (!stopped) left.insert(left.begin(), "Tovi is still running");
  if (!left.empty()) {
    return failed(context, fmt::format("Not removed yet: {}. Tovi keeps its helper so it can keep trying; try again in "
                                       "a minute.",
                                       context.output.shown(fmt::format("{}", fmt::join(left, ", ")))));
  }
  if (const SetupError error = Setup(context.machine, context.state).uninstall()) return failed(context, *error);
  context.output.line("Removed. Quit Tovi and move it to the Trash to finish.");
  return 0;
}

}  // namespace tovi
