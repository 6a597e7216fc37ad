// One run of the command line tool, as its words see it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "commands/CLI.h"
#include "commands/Client.h"
#include "commands/Output.h"
#include "core/StateFiles.h"
#include "platform/Machine.h"

namespace tovi::CLI {

class Context {
 public:
  explicit Context(const Ground& ground)
      : output(ground.output),
        machine(ground.machine()),
        state(machine),
        client(machine, state, ground.sleep),
        sleep(ground.sleep) {}

  Output& output;
  const Machine& machine;
  const StateFiles state;
  const Client client;
  const Client::Sleep sleep;
};

constexpr Seconds kUsualTimeout{8};

using Word = int(Context& context, const Words& words);  // words[0] is the word itself

// Those that stand in files of their own.
Word run, mcp, watchdog, doctor, rescue, setup, uninstall, settings, connect, power;

// Asks a running application to end and waits a while for it; whether none is alive afterwards.
bool stopApplication(Context& context);

}  // namespace tovi::CLI
