#include "platform/ProcessTable.h"

#include <algorithm>
#include <unordered_set>

namespace tovi {

std::string_view ProcessEntry::name() const {
  if (!path) return {};
  const std::string_view whole = *path;
  return whole.substr(whole.rfind('/') + 1);  // npos + 1 is 0: the whole path
}

ProcessTable::ProcessTable(std::vector<ProcessEntry> entries) : entries_(std::move(entries)) {
  const auto byPid = [](const ProcessEntry& a, const ProcessEntry& b) { return a.pid < b.pid; };
  if (!std::is_sorted(entries_.begin(), entries_.end(), byPid)) std::sort(entries_.begin(), entries_.end(), byPid);
}

const ProcessEntry* ProcessTable::find(Pid pid) const {
  const auto at = std::lower_bound(entries_.begin(), entries_.end(), pid,
                                   [](const ProcessEntry& entry, Pid wanted) { return entry.pid < wanted; });
  return at != entries_.end() && at->pid == pid ? &*at : nullptr;
}

void ProcessTable::index() const {
  if (indexed_) return;
  byParent_.clear();
  for (const ProcessEntry& entry : entries_) {
    if (entry.parent) byParent_.emplace_back(*entry.parent, entry.pid);
  }
  std::sort(byParent_.begin(), byParent_.end());
  children_.clear();
  for (const auto& [parent, child] : byParent_) children_.push_back(child);
  indexed_ = true;
}

std::span<const Pid> ProcessTable::childrenOf(Pid pid) const {
  index();
  const auto first = std::lower_bound(byParent_.begin(), byParent_.end(), pid,
                                      [](const auto& pair, Pid wanted) { return pair.first < wanted; });
  auto last = first;
  while (last != byParent_.end() && last->first == pid) ++last;
  return std::span{children_}.subspan(static_cast<std::size_t>(first - byParent_.begin()),
                                      static_cast<std::size_t>(last - first));
}

std::vector<Pid> ProcessTable::tree(Pid root) const {
  std::vector<Pid> found;
  std::vector<Pid> stack{root};
  std::unordered_set<Pid> seen;
  while (!stack.empty()) {
    const Pid pid = stack.back();
    stack.pop_back();
    if (!seen.insert(pid).second) continue;
    found.push_back(pid);
    const auto children = childrenOf(pid);
    stack.insert(stack.end(), children.begin(), children.end());
  }
  return found;
}

std::vector<Pid> ProcessTable::ancestors(Pid pid) const {
  std::vector<Pid> found;
  const ProcessEntry* entry = find(pid);
  // A picture taken while parents change can hold a circle; no real chain is longer than the table.
  while (entry != nullptr && entry->parent && *entry->parent >= 2 && found.size() < entries_.size()) {
    found.push_back(*entry->parent);
    entry = find(*entry->parent);
  }
  return found;
}

std::vector<ProcessEntry> ProcessTable::take() {
  indexed_ = false;
  byParent_.clear();
  children_.clear();
  return std::exchange(entries_, {});
}

}  // namespace tovi
