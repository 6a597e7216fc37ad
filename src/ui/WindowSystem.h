// The face of the application: windows, the Dock, the global hot key. A machine without a window system has none,
// and then nothing is shown; everything else works all the same.
#pragma once

#include <functional>
#include <string>

#include "core/Modes.h"
#include "platform/Types.h"

namespace tovi {

enum class Window { none, popover, main, settings };

class WindowSystem {
 public:
  virtual ~WindowSystem() = default;

  // Brings a window to the front; false if it can't be shown. Who closes it tells StatusController::closed.
  virtual bool show(Window window) = 0;

  // Writes a picture of the window, in PNG format, to `path`; false if that fails.
  virtual bool snapshot(Window window, const std::string& path) = 0;

  virtual void setShownInDock(bool shown) = 0;
  virtual bool ordinaryWindowVisible() = 0;  // neither a panel nor the popover
  virtual void setAppearance(AppearanceChoice choice) = 0;

  // Calls when the person presses Control-Option-Command-A anywhere. An empty registration: not available.
  virtual Registration onHotkey(std::function<void()> call) = 0;
};

}  // namespace tovi
