// Tells which agents have written to their transcripts since the last look: the sign of work for an agent that
// waits for its model, and so draws next to nothing here.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/Types.h"

namespace tovi {

struct Machine;

class Transcripts {
 public:
  explicit Transcripts(const Machine& machine);

  // The ids of the known kinds below one of whose folders something is newer than at the last look. The first
  // look at a folder never tells of a change.
  std::set<std::string, std::less<>> changedKinds();

  void forget() { newestSeen_.clear(); }  // the next look is again the first

 private:
  bool changed(const std::string& folder);
  std::optional<Date> newest(std::string& path, int depth, int& budget) const;

  const Machine& machine_;
  std::map<std::string, Date, std::less<>> newestSeen_;  // by folder below the home folder
};

}  // namespace tovi
