// The two safety settings as last accepted from inside the application; nothing from outside loosens them.
#pragma once

#include <optional>

namespace tovi {

class StateFiles;

struct Safety {
  bool heatGuard = true;
  int batteryFloor = 0;  // percent

  friend bool operator==(const Safety&, const Safety&) = default;

  static std::optional<Safety> load(const StateFiles& state);  // absent: no record, or not one
  void save(const StateFiles& state) const;                    // best effort

  // The given settings as they may be from outside: never looser than these.
  void tighten(bool& guard, int& floor) const;
};

}  // namespace tovi
