// The global hot key and what it does.
#pragma once

#include <functional>
#include <utility>

#include "ui/WindowSystem.h"

namespace tovi {

class Hotkey {
 public:
  explicit Hotkey(WindowSystem* windows) : windows_(windows) {}  // may be null: the key can't be had then

  void setAction(std::function<void()> action) { action_ = std::move(action); }

  // Taken or given back; taking what is held already changes nothing.
  void setRegistered(bool registered) {
    if (!registered) {
      key_.reset();
    } else if (windows_ != nullptr && !key_) {
      key_ = windows_->onHotkey([this] {
        if (action_) action_();
      });
    }
  }

 private:
  WindowSystem* windows_;
  std::function<void()> action_;
  Registration key_;
};

}  // namespace tovi
