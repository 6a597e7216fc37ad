// The resident application: who is first, what is made in which order, and what is given back at the end.
#pragma once

#include <memory>
#include <optional>

#include "core/Modes.h"
#include "platform/Files.h"
#include "platform/Types.h"
#include "ui/Hotkey.h"
#include "ui/QuickMenu.h"
#include "ui/WindowSystem.h"

namespace tovi {

class CommandCenter;
class Engine;
class Notifier;
class RemoteControl;
class StatusController;
struct Machine;

class AppDelegate {
 public:
  // `windows` may be null. Both must outlive this object.
  AppDelegate(const Machine& machine, WindowSystem* windows);
  ~AppDelegate();

  // Makes this process the primary copy, with everything a copy has; or, if another one is primary, a passive copy
  // that only looks, and that shows the other one and ends if it can. A preview, drawn by a development tool, is
  // passive and doesn't touch the lock.
  void didFinishLaunching(bool preview);

  // The person opened the program again.
  void shouldHandleReopen();

  // The menu of the Dock; none on a passive copy.
  std::optional<Menu> dockMenu();

  void willTerminate();

  // What the hot key does: off, When Busy, Always, and off again.
  void cycleMode();

  bool isPrimary() const { return lock_ != nullptr; }
  Engine* engine() { return engine_.get(); }             // null before the launch
  StatusController* ui() { return ui_.get(); }           // null on a passive copy
  CommandCenter* commands() { return commands_.get(); }  // likewise
  RemoteControl* remote() { return remote_.get(); }      // likewise

 private:
  struct Applied {
    bool dock = false;
    bool hotkey = false;
    bool island = false;
    AppearanceChoice look = AppearanceChoice::system;

    friend bool operator==(const Applied&, const Applied&) = default;
  };

  void standAside(bool preview);
  void applyAppearanceSettings();
  void observeSettings();
  void showFirstRunWindow();

  const Machine& machine_;
  WindowSystem* windows_;
  std::unique_ptr<Files::Lock> lock_;  // for the life of the primary copy
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<StatusController> ui_;
  std::unique_ptr<CommandCenter> commands_;
  std::unique_ptr<Notifier> notifier_;
  std::unique_ptr<RemoteControl> remote_;
  Hotkey hotkey_;
  std::optional<Applied> applied_;  // the last put into effect
  Registration settings_;
};

}  // namespace tovi
