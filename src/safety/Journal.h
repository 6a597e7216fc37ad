// The undo journal: every process that was slowed or paused, on disk before it is touched, so that any later run
// can put each back and cannot by mistake signal another that inherited its number.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct Machine;
class StateFiles;

// `pid`, `start` and `path` together are the identity.
struct Touched {
  Pid pid = 0;
  Microseconds start = 0;
  std::string path;
  bool paused = false;  // else slowed

  friend bool operator==(const Touched&, const Touched&) = default;
};

namespace Journal {

// The list of touched.json; empty if it doesn't exist, can't be read or isn't one.
std::vector<Touched> load(const StateFiles& state);
std::vector<Touched> decode(std::string_view text);

// Makes the file match the list, an empty list by the file's absence. Whether the file now says what the list says.
bool save(const Machine& machine, const StateFiles& state, const std::vector<Touched>& list);

// Tries to put back every entry; returns those that are still in force, in their order.
std::vector<Touched> undo(const Machine& machine, const std::vector<Touched>& list);

// The same where the list is all that is in force: what is slow only because a slowed process started it goes back too.
std::vector<Touched> undoAll(const Machine& machine, const std::vector<Touched>& list);

// Puts back what the files of an older form name, and deletes them.
void undoLegacyFiles(const Machine& machine, const StateFiles& state);

}  // namespace Journal
}  // namespace tovi
