#include "platform/simulated/MemoryProcesses.h"

#include <fmt/format.h>

#include <cmath>

#include "platform/simulated/MemoryClock.h"
#include "platform/simulated/MemoryFaults.h"

namespace tovi {

namespace {

constexpr double kBackgroundShare = 0.25;
constexpr Microseconds kTick = 10'000;  // start times are told in hundredths of a second on many systems

}  // namespace

Pid MemoryProcesses::parentOfSelf() { return parent(self_).value_or(1); }

std::vector<Pid> MemoryProcesses::allPids() {
  std::vector<Pid> pids;
  pids.reserve(rows_.size());
  for (const auto& [pid, row] : rows_) pids.push_back(pid);
  return pids;
}

const ProcessTable& MemoryProcesses::table() {
  if (!tableStale_) return table_;
  std::vector<ProcessEntry> entries;
  entries.reserve(rows_.size());
  for (const auto& [pid, row] : rows_) {
    ProcessEntry& entry = entries.emplace_back();
    entry.pid = pid;
    entry.parent = parent(pid);
    entry.start = startTime(pid);
    entry.path = path(pid);
    entry.generation = row.generation;
  }
  table_ = ProcessTable(std::move(entries));
  tableStale_ = false;
  return table_;
}

std::optional<Pid> MemoryProcesses::parent(Pid pid) {
  const MemoryProcess* process = find(pid);
  if (process == nullptr || process->hidesParent) return std::nullopt;
  return process->parent;
}

std::optional<Microseconds> MemoryProcesses::startTime(Pid pid) {
  const MemoryProcess* process = find(pid);
  if (process == nullptr || process->hidesStart) return std::nullopt;
  return process->start;
}

MemoryProcesses::Row* MemoryProcesses::mine(Pid pid) {
  const auto at = rows_.find(pid);
  return at == rows_.end() || !at->second.facts.mine ? nullptr : &at->second;
}

std::optional<std::string> MemoryProcesses::path(Pid pid) {
  const Row* row = mine(pid);
  if (row == nullptr || row->facts.path.empty()) return std::nullopt;
  return row->facts.path;
}

std::vector<std::string> MemoryProcesses::arguments(Pid pid) {
  const Row* row = mine(pid);
  return row == nullptr ? std::vector<std::string>{} : row->facts.arguments;
}

std::optional<std::string> MemoryProcesses::workingDirectory(Pid pid) {
  const Row* row = mine(pid);
  if (row == nullptr || row->facts.workingDirectory.empty()) return std::nullopt;
  return row->facts.workingDirectory;
}

std::optional<ProcessUsage> MemoryProcesses::usage(Pid pid) {
  Row* row = mine(pid);
  if (row == nullptr || row->facts.hidesUsage) return std::nullopt;
  accrue(*row);
  return ProcessUsage{static_cast<std::uint64_t>(std::llround(row->joules * 1e9)),
                      static_cast<std::uint64_t>(std::llround(row->cpuSeconds * 1e9))};
}

Microseconds MemoryProcesses::now() {
  return static_cast<Microseconds>(std::llround(unixSeconds(clock_.steadyNow()) * 1e6));
}

void MemoryProcesses::accrue(Row& row) const {
  const double span = clock_.awake() - row.since;
  row.since = clock_.awake();
  if (row.facts.stopped || span <= 0) return;
  const double share = row.facts.background ? kBackgroundShare : 1;
  row.joules += row.facts.watts * share * span;
  row.cpuSeconds += row.facts.cores * share * span;
}

bool MemoryProcesses::act(std::string_view verb, ProcessEffect::Kind kind, Pid pid, Microseconds start,
                          bool MemoryProcess::*field, bool value) {
  if (pid < 2 || pid == self()) effects_.push_back({kind, pid, start});  // whatever comes of it, it was tried
  Row* row = mine(pid);
  if (row == nullptr || row->facts.hidesStart || row->facts.start != start) return false;
  return faults_.perform(verb, fmt::format_int(pid).c_str(), [&] {
    accrue(*row);
    row->facts.*field = value;
    effects_.push_back({kind, pid, start});
    return true;
  });
}

bool MemoryProcesses::pause(Pid pid, Microseconds start) {
  return act("kill STOP", ProcessEffect::Kind::pause, pid, start, &MemoryProcess::stopped, true);
}

bool MemoryProcesses::resume(Pid pid, Microseconds start) {
  return act("kill CONT", ProcessEffect::Kind::resume, pid, start, &MemoryProcess::stopped, false);
}

bool MemoryProcesses::setBackgroundPriority(Pid pid, Microseconds start) {
  return act("background", ProcessEffect::Kind::background, pid, start, &MemoryProcess::background, true);
}

bool MemoryProcesses::setNormalPriority(Pid pid, Microseconds start) {
  return act("normal", ProcessEffect::Kind::normal, pid, start, &MemoryProcess::background, false);
}

Pid MemoryProcesses::add(MemoryProcess process) {
  if (process.pid == 0) {
    while (rows_.contains(nextPid_)) ++nextPid_;
    process.pid = nextPid_++;
  }
  if (rows_.contains(process.pid)) exit(process.pid);
  Microseconds& last = lastStart_[process.pid];
  if (!process.start) process.start = now() > last ? now() : last + kTick;
  last = *process.start;
  Row row;
  const Pid pid = process.pid;
  row.facts = std::move(process);
  row.since = clock_.awake();
  row.generation = ++lastGeneration_;
  if (const auto parent = rows_.find(row.facts.parent); parent != rows_.end() && parent->second.facts.background) {
    row.facts.background = true;
  }
  rows_.emplace(pid, std::move(row));
  tableStale_ = true;
  return pid;
}

void MemoryProcesses::restoreInheritedPriority(const std::unordered_set<Pid>& listed) {
  for (auto& [pid, row] : rows_) {
    if (!row.facts.background || !row.facts.mine || listed.contains(pid)) continue;
    setNormalPriority(pid, *row.facts.start);
  }
}

void MemoryProcesses::exit(Pid pid) {
  const auto at = rows_.find(pid);
  if (at == rows_.end()) return;
  accrue(at->second);
  goneJoules_ += at->second.joules;
  rows_.erase(at);
  for (auto& [child, row] : rows_) {
    if (row.facts.parent == pid) row.facts.parent = 1;
  }
  tableStale_ = true;
}

void MemoryProcesses::exec(Pid pid, const std::string& path, std::vector<std::string> arguments) {
  const auto at = rows_.find(pid);
  if (at == rows_.end()) return;
  if (at->second.facts.path != path) at->second.generation = ++lastGeneration_;
  at->second.facts.path = path;
  at->second.facts.arguments = std::move(arguments);
  tableStale_ = true;
}

void MemoryProcesses::setParent(Pid pid, Pid parent) {
  const auto at = rows_.find(pid);
  if (at == rows_.end()) return;
  at->second.facts.parent = parent;
  tableStale_ = true;
}

void MemoryProcesses::setRates(Pid pid, double watts, double cores) {
  const auto at = rows_.find(pid);
  if (at == rows_.end()) return;
  accrue(at->second);
  at->second.facts.watts = watts;
  at->second.facts.cores = cores;
}

void MemoryProcesses::setCounters(Pid pid, const ProcessUsage& usage) {
  const auto at = rows_.find(pid);
  if (at == rows_.end()) return;
  accrue(at->second);
  at->second.joules = static_cast<double>(usage.energyNanojoules) / 1e9;
  at->second.cpuSeconds = static_cast<double>(usage.cpuNanoseconds) / 1e9;
}

void MemoryProcesses::clear() {
  goneJoules_ = totalJoules();
  rows_.clear();
  tableStale_ = true;
}

const MemoryProcess* MemoryProcesses::find(Pid pid) const {
  const auto at = rows_.find(pid);
  return at == rows_.end() ? nullptr : &at->second.facts;
}

bool MemoryProcesses::stopped(Pid pid) const {
  const MemoryProcess* process = find(pid);
  return process != nullptr && process->stopped;
}

bool MemoryProcesses::background(Pid pid) const {
  const MemoryProcess* process = find(pid);
  return process != nullptr && process->background;
}

double MemoryProcesses::totalJoules() {
  double joules = goneJoules_;
  for (auto& [pid, row] : rows_) {
    accrue(row);
    joules += row.joules;
  }
  return joules;
}

}  // namespace tovi
