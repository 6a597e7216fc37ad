// Which of the program's windows the person sees, and its notch island. The engine looks more often while the popover
// is open, so that must be true exactly as long as somebody can see it.
#pragma once

#include <string>

#include "ui/Island.h"
#include "ui/WindowSystem.h"

namespace tovi {

class Engine;

class StatusController {
 public:
  // `windows` may be null: nothing is ever shown then. Both must outlive this object.
  StatusController(Engine& engine, WindowSystem* windows);

  void showMainWindow() { show(Window::main); }
  void showPopover() { show(Window::popover); }
  void showSettings() { show(Window::settings); }

  // The person, or the window system, closed it.
  void closed(Window window);

  // The window that was shown last and still is; none if there is no such.
  Window shown() const { return shown_; }

  // Writes a picture of a window to `path`: of the settings, of the main window, or with neither of the popover. False
  // if that fails.
  bool snapshot(const std::string& path, bool window, bool settings);

  Island& island() { return island_; }

 private:
  void show(Window window);
  void setShown(Window window);

  Engine& engine_;
  WindowSystem* windows_;
  Window shown_ = Window::none;
  Island island_;
};

}  // namespace tovi
