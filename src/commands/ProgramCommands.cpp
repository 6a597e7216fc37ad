// Commands about the program itself: its windows and its end.

#include <nlohmann/json.hpp>

#include "commands/CommandCall.h"
#include "core/DelayedCalls.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "platform/MainQueue.h"
#include "ui/StatusController.h"

namespace tovi {

namespace {

constexpr Seconds kWindowDraws{1.6};
constexpr Seconds kAnnouncement{3.6};

// The name of the picture: only the last part counts, so that no path leads out of the state folder.
std::optional<std::string> pictureName(std::string_view path) {
  std::string name{text::lastPathComponent(path)};
  if (name.empty()) name = "snapshot.png";
  // The system ends a name at a zero byte, and would then see another one than we do.
  const bool sound = !name.starts_with('.') && name.find('\0') == std::string::npos;
  return sound && text::lowercased(name).ends_with(".png") ? std::optional{name} : std::nullopt;
}

}  // namespace

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

void handlers::snapshot(const Arguments& args, const CommandCall& call) {
  const auto name = pictureName(args.text("path").value_or(""));
  if (!name) return call.fail("snapshot name must end in .png");
  const bool window = args.text("where") == "window", settings = args.text("where") == "settings";
  if (settings) {
    call.ui.showSettings();
  } else if (window) {
    call.ui.showMainWindow();
  } else {
    call.ui.showPopover();
  }
  call.later.after(kWindowDraws, [call, window, settings, path = call.engine.state().path(*name)] {
    if (!call.ui.snapshot(path, window, settings)) return call.fail("snapshot failed");
    call.succeed({{"path", path}});
  });
}

void handlers::island(const Arguments& args, const CommandCall& call) {
  const Engine& engine = call.engine;
  call.ui.island().announce(args.text("title").value_or("Tovi"), args.text("subtitle").value_or(engine.statusLine()),
                            engine.holding, kAnnouncement);
  call.succeed();
}

void handlers::quit(const Arguments&, const CommandCall& call) {
  // The answer first, so that the asker has it before the program goes.
  call.reply({{"ok", true}});
  MainQueue& queue = call.engine.machine().queue;
  queue.post([&queue] { queue.stop(); });
}

}  // namespace tovi
