#include "app/AppDelegate.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>

#include "commands/CommandCenter.h"
#include "commands/Peers.h"
#include "commands/Wire.h"
#include "engine/Engine.h"
#include "platform/Broadcast.h"
#include "platform/Defaults.h"
#include "platform/MainQueue.h"
#include "platform/Notices.h"
#include "platform/Workspace.h"
#include "remote/RemoteControl.h"
#include "ui/Notifier.h"
#include "ui/StatusController.h"

namespace tovi {

namespace {

constexpr Seconds kAnnouncement{2};
constexpr Seconds kLongAnnouncement{3.6};  // two lines that nobody waited for

}  // namespace

AppDelegate::AppDelegate(const Machine& machine, WindowSystem* windows)
    : machine_(machine), windows_(windows), hotkey_(windows) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::didFinishLaunching(bool preview) {
  const StateFiles state(machine_);
  if (!preview) lock_ = Peers::takeLock(machine_, state);
  if (!lock_) return standAside(preview);

  engine_ = std::make_unique<Engine>(machine_, false);
  ui_ = std::make_unique<StatusController>(*engine_, windows_);
  commands_ = std::make_unique<CommandCenter>(*engine_, *ui_);
  engine_->onAnnounce = [this](const std::string& title, const std::string& body) {
    ui_->island().announce(title, body, engine_->holding, kLongAnnouncement);
  };
  notifier_ = std::make_unique<Notifier>(*engine_, machine_.http);
  remote_ = std::make_unique<RemoteControl>(
      *engine_, machine_.http,
      [this](std::string_view command, const nlohmann::json& args, RemoteControl::Result result) {
        commands_->handle(command, args, std::move(result));
      },
      [this] { return engine_->panelJSON(); });
  hotkey_.setAction([this] { cycleMode(); });
  applyAppearanceSettings();
  observeSettings();
  showFirstRunWindow();
}

void AppDelegate::standAside(bool preview) {
  engine_ = std::make_unique<Engine>(machine_, true);
  if (preview) return;

  const std::string folder = machine_.workspace.applicationsFolder();
  auto others = Peers::holders(machine_);
  // An installed copy doesn't give way to one that runs from elsewhere, such as a build folder.
  if (Peers::bundlePath(machine_.surroundings.executable).starts_with(folder)) {
    std::erase_if(others,
                  [&](const auto& other) { return !other.bundlePath || !other.bundlePath->starts_with(folder); });
  }
  if (others.empty()) return;
  // The final slash doesn't count here.
  const std::string_view prefix = std::string_view{folder}.substr(0, folder.size() - (folder.ends_with('/') ? 1 : 0));
  const auto& first = others.front().bundlePath;
  if (!first || !first->starts_with(prefix)) return;
  if (machine_.surroundings.arguments.size() > 1) return;

  machine_.broadcast.post(Wire::request(newUuid(), "open", nlohmann::json::object()));
  machine_.queue.stop();
}

void AppDelegate::showFirstRunWindow() {
  const auto isSet = [&](const char* key) { return machine_.defaults.flag(key).value_or(false); };
  if (engine_->setupReady && isSet("launchedBefore") && isSet("onboardingDone")) return;
  machine_.defaults.set("launchedBefore", true);
  ui_->showMainWindow();
}

void AppDelegate::shouldHandleReopen() {
  if (ui_) ui_->showMainWindow();
}

std::optional<Menu> AppDelegate::dockMenu() {
  if (!ui_) return std::nullopt;
  return QuickMenu::build(
      *engine_, [this] { ui_->showMainWindow(); }, [this] { ui_->showSettings(); });
}

void AppDelegate::willTerminate() {
  if (engine_) engine_->shutdown();
}

void AppDelegate::observeSettings() {
  settings_ = engine_->config.observe([this] { applyAppearanceSettings(); });
}

void AppDelegate::applyAppearanceSettings() {
  const Config& config = engine_->config;
  const Applied wanted{config.showInDock, config.hotkey, config.notchIsland, config.appearance};
  if (applied_ == wanted) return;
  if (!applied_ || applied_->hotkey != wanted.hotkey) hotkey_.setRegistered(wanted.hotkey);
  if (!applied_ || applied_->island != wanted.island) ui_->island().setEnabled(wanted.island);
  if (windows_ != nullptr) {
    // Leaving the Dock would hide a window that is in use.
    if ((!applied_ || applied_->dock != wanted.dock) && (wanted.dock || !windows_->ordinaryWindowVisible())) {
      windows_->setShownInDock(wanted.dock);
    }
    if (!applied_ || applied_->look != wanted.look) windows_->setAppearance(wanted.look);
  }
  applied_ = wanted;
}

void AppDelegate::cycleMode() {
  Config next = engine_->config;
  switch (next.mode) {
    case Mode::off:
      next.mode = Mode::automatic;
      engine_->apply(std::move(next), true);
      break;
    case Mode::automatic:
      engine_->stayAwake(std::nullopt);
      break;
    case Mode::on:
      next.mode = Mode::off;
      engine_->apply(std::move(next), true);
      break;
  }
  ui_->island().announce(fmt::format("{}: {}", modeLabel(engine_->config->mode), engine_->statusLine()),
                         "⌃⌥⌘A to change", engine_->holding, kAnnouncement);
  machine_.notices.play("Tink");
}

}  // namespace tovi
