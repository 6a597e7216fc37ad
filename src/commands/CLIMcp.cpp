// `tovi mcp`: the server on the standard streams.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "commands/CLIContext.h"
#include "commands/LineService.h"
#include "commands/MCPServer.h"
#include "platform/Processes.h"

namespace tovi {

int CLI::mcp(Context& context, const Words&) {
  std::signal(SIGPIPE, SIG_IGN);
  const Client client(context.machine, context.state, [](Seconds span) {
    // Nobody is left to hear the answer that is being waited for, and nothing here needs tidying up.
    if (LineService::readerGoesWithin(STDOUT_FILENO, span)) std::_Exit(0);
  });
  // Who started us is asked now: by the time of a call it may be gone, and its holds would belong to a stranger.
  // One from outside a container can't be seen in it, and process 1 adopts everybody: then the server, which ends
  // with its session too, stands for them.
  const Pid starter = context.machine.processes.parentOfSelf();
  const MCPServer server({.agent = starter >= 2 ? starter : context.machine.processes.self(),
                          .send = [&](const std::string& command, const nlohmann::json& args, Seconds timeout) {
                            return client.sendWithin(command, args, timeout);
                          }});
  return server.run(STDIN_FILENO, STDOUT_FILENO);
}

}  // namespace tovi
