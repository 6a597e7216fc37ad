// Which of the program's windows the person sees. The engine looks more often while the popover is open, so that
// must be true exactly as long as somebody can see it.
#pragma once

#include "ui/WindowSystem.h"

namespace tovi {

class Engine;

class StatusController {
 public:
  // `windows` may be null: nothing is ever shown then. Both must outlive this object.
  StatusController(Engine& engine, WindowSystem* windows) : engine_(engine), windows_(windows) {}

  void showMainWindow() { show(Window::main); }
  void showPopover() { show(Window::popover); }
  void showSettings() { show(Window::settings); }

  // The person, or the window system, closed it.
  void closed(Window window);

  // The window that was shown last and still is; none if there is no such.
  Window shown() const { return shown_; }

 private:
  void show(Window window);
  void setShown(Window window);

  Engine& engine_;
  WindowSystem* windows_;
  Window shown_ = Window::none;
};

}  // namespace tovi
