// Commands about the program itself: its windows and its end.

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "engine/Engine.h"
#include "platform/MainQueue.h"
#include "ui/StatusController.h"

namespace tovi {

void handlers::open(const Arguments& args, const CommandCall& call) {
  if (args.text("where") == "window") {
    call.ui.showMainWindow();
  } else {
    call.ui.showPopover();
  }
  call.succeed();
}

void handlers::settings(const Arguments&, const CommandCall& call) {
  call.ui.showSettings();
  call.succeed();
}

void handlers::quit(const Arguments&, const CommandCall& call) {
  // The answer first, so that the asker has it before the program goes.
  call.reply({{"ok", true}});
  MainQueue& queue = call.engine.machine().queue;
  queue.post([&queue] { queue.stop(); });
}

}  // namespace tovi
