#include "ui/StatusController.h"

#include "engine/Engine.h"

namespace tovi {

void StatusController::show(Window window) {
  if (windows_ != nullptr && windows_->show(window)) setShown(window);
}

void StatusController::closed(Window window) {
  if (shown_ == window) setShown(Window::none);
}

void StatusController::setShown(Window window) {
  shown_ = window;
  engine_.panelOpen = window == Window::popover;
}

}  // namespace tovi
