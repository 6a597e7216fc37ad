// Two system-wide settings that change while the lid is closed: Low Power Mode on battery, and automatic backups.
// Each leaves a file behind before it is switched, and goes back to exactly what it was.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovi {

struct Machine;
class StateFiles;

namespace PowerMode {
struct Setting {
  std::string key;  // the name under which the system reports it
  int value = 0;
  friend bool operator==(const Setting&, const Setting&) = default;
};
// The setting for battery power; absent on a machine without it.
std::optional<Setting> battery(const Machine& machine);
// Its reading from what `pmset -g custom` printed.
std::optional<Setting> parseBattery(std::string_view customSettings);

void setLow(const Machine& machine, const StateFiles& state);
// False if the system refused; the file stays for another try.
bool restore(const Machine& machine, const StateFiles& state);
bool lowSet(const StateFiles& state);
}  // namespace PowerMode

namespace TimeMachine {
bool paused(const StateFiles& state);
bool autoBackupOn(const Machine& machine);
void pause(const Machine& machine, const StateFiles& state);
bool resume(const Machine& machine, const StateFiles& state);  // true if nothing is left to undo
}  // namespace TimeMachine

namespace BuildTools {
bool contains(std::string_view executable);  // compilers and build drivers, by file name
}

}  // namespace tovi
