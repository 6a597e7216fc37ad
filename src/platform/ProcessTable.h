// A picture of all processes for observing: who runs what, and who started whom.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct ProcessEntry {
  Pid pid = 0;
  std::optional<Pid> parent;
  std::optional<Microseconds> start;
  std::optional<std::string> path;  // of the executable; absent for processes of other people
  // A number never used before for a process that is new or whose path has changed since the last picture, so
  // that what was worked out for an entry can be kept for as long as its generation stands.
  std::uint64_t generation = 0;

  std::string_view name() const;  // last path component; empty without a path
};

class ProcessTable {
 public:
  ProcessTable() = default;
  explicit ProcessTable(std::vector<ProcessEntry> entries);  // in any order

  const std::vector<ProcessEntry>& entries() const { return entries_; }  // by rising pid
  const ProcessEntry* find(Pid pid) const;                               // null if it isn't there
  std::span<const Pid> childrenOf(Pid pid) const;

  // `root` first, then its descendants, each once, also where the facts form a circle.
  std::vector<Pid> tree(Pid root) const;

  // The parent of `pid`, its parent and so on, while each is 2 or more and known.
  std::vector<Pid> ancestors(Pid pid) const;

  // Takes the entries out to bring them up to date; the table is empty afterwards.
  std::vector<ProcessEntry> take();

 private:
  std::vector<ProcessEntry> entries_;
  // Children of all, grouped by parent; made at the first question and dropped with the entries.
  mutable bool indexed_ = false;
  mutable std::vector<std::pair<Pid, Pid>> byParent_;
  mutable std::vector<Pid> children_;
  void index() const;
};

}  // namespace tovi
