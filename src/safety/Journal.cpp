#include "safety/Journal.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "core/Guard.h"
#include "core/Json.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr char kTouched[] = "touched.json";

// JSON holds text, so a path that isn't UTF-8 stands in the file with its bad bytes replaced. Both sides are
// compared in that form.
bool samePath(const std::string& a, const std::string& b) { return a == b || repairUtf8(a) == repairUtf8(b); }

bool isSameProcess(const Machine& machine, const Touched& entry) {
  if (machine.processes.startTime(entry.pid) != entry.start) return false;
  const auto path = machine.processes.path(entry.pid);
  return path && !path->empty() && samePath(*path, entry.path);
}

// Puts one process back. Neither init nor we ourselves are ever signalled, whatever the journal says.
bool putBack(const Machine& machine, Pid pid, Microseconds start, bool paused) {
  if (pid < 2 || (paused && pid == machine.processes.self())) return false;
  return paused ? machine.processes.resume(pid, start) : machine.processes.setNormalPriority(pid, start);
}

std::optional<Touched> entryFrom(const json::Value& value) {
  const json::Value* pid = json::member(value, "pid");
  const json::Value* start = json::member(value, "start");
  const json::Value* path = json::member(value, "path");
  const json::Value* paused = json::member(value, "paused");
  if (pid == nullptr || start == nullptr || path == nullptr || paused == nullptr) return std::nullopt;
  if (!pid->is_number_integer() || !start->is_number_unsigned() || !path->is_string() || !paused->is_boolean()) {
    return std::nullopt;
  }
  const auto number = json::asInteger(*pid);
  if (!number || *number < std::numeric_limits<Pid>::min() || *number > std::numeric_limits<Pid>::max()) {
    return std::nullopt;
  }
  return Touched{static_cast<Pid>(*number), start->get<Microseconds>(), path->get<std::string>(), paused->get<bool>()};
}

void undoLegacyFile(const Machine& machine, const StateFiles& state, const char* name, bool paused) {
  const auto content = state.read(name);
  if (!content || !isUtf8(*content)) return;
  for (const std::string_view line : text::pieces(*content, "\n")) {
    const auto tab = line.find('\t');
    if (tab == std::string_view::npos || line.find('\t', tab + 1) != std::string_view::npos) continue;
    const auto pid = text::decimal<Pid>(line.substr(0, tab));
    if (!pid) continue;
    const auto path = machine.processes.path(*pid);
    if (!path || path->empty() || !samePath(*path, std::string{line.substr(tab + 1)})) continue;
    // The file names no start time, so the one of now is what the check before acting goes by.
    if (const auto start = machine.processes.startTime(*pid)) putBack(machine, *pid, *start, paused);
  }
  state.remove(state.path(name));
}

}  // namespace

std::vector<Touched> Journal::decode(std::string_view text) {
  const auto list = json::parse(text);
  if (!list || !list->is_array()) return {};
  std::vector<Touched> entries;
  for (const json::Value& value : *list) {
    auto entry = entryFrom(value);
    if (!entry) return {};  // half a list would lose the other half at the next save without a word
    entries.push_back(std::move(*entry));
  }
  return entries;
}

std::vector<Touched> Journal::load(const StateFiles& state) {
  const auto content = state.read(kTouched);
  return content ? decode(*content) : std::vector<Touched>{};
}

bool Journal::save(const Machine&, const StateFiles& state, const std::vector<Touched>& list) {
  const std::string path = state.path(kTouched);
  if (list.empty()) {
    state.remove(path);
    return !state.exists(kTouched);
  }
  json::Value array = json::Value::array();
  for (const Touched& entry : list) {
    array.push_back(
        {{"pid", entry.pid}, {"start", entry.start}, {"path", repairUtf8(entry.path)}, {"paused", entry.paused}});
  }
  return state.writeDurably(json::compact(array), path);
}

std::vector<Touched> Journal::undo(const Machine& machine, const std::vector<Touched>& list) {
  std::vector<Touched> inForce;
  for (const Touched& entry : list) {
    if (!isSameProcess(machine, entry) || putBack(machine, entry.pid, entry.start, entry.paused)) continue;
    if (isSameProcess(machine, entry) && !without(Guard::journalUntilUndone)) inForce.push_back(entry);
  }
  return inForce;
}

std::vector<Touched> Journal::undoAll(const Machine& machine, const std::vector<Touched>& list) {
  if (list.empty()) return {};
  auto left = undo(machine, list);
  // Before the list is forgotten: what is slow by inheritance is known by nothing else.
  machine.processes.restoreInheritedPriority({});
  return left;
}

void Journal::undoLegacyFiles(const Machine& machine, const StateFiles& state) {
  undoLegacyFile(machine, state, "paused", /*paused=*/true);
  undoLegacyFile(machine, state, "slowed", /*paused=*/false);
}

}  // namespace tovi
