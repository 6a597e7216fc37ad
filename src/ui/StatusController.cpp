#include "ui/StatusController.h"

#include "engine/Engine.h"

namespace tovi {

StatusController::StatusController(Engine& engine, WindowSystem* windows)
    : engine_(engine), windows_(windows), island_(engine.machine().queue) {}

void StatusController::show(Window window) {
  if (windows_ != nullptr && windows_->show(window)) setShown(window);
}

void StatusController::closed(Window window) {
  if (shown_ == window) setShown(Window::none);
}

void StatusController::setShown(Window window) {
  shown_ = window;
  const bool opens = window == Window::popover && !engine_.panelOpen;
  engine_.panelOpen = window == Window::popover;
  if (opens) engine_.refreshFast();
}

bool StatusController::snapshot(const std::string& path, bool window, bool settings) {
  const Window which = settings ? Window::settings : window ? Window::main : Window::popover;
  return windows_ != nullptr && windows_->snapshot(which, path);
}

}  // namespace tovi
