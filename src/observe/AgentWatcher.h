// Finds the agents that run on the machine and decides, sample by sample, which of them are doing something:
// by the energy of their process trees, by commands they started, and by the transcripts they write.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "observe/AgentSession.h"
#include "observe/SleepBlocker.h"

namespace tovi {

struct Machine;
struct ProcessEntry;

class AgentWatcher {
 public:
  explicit AgentWatcher(const Machine& machine);
  ~AgentWatcher();

  // Looks at every process once and replaces the results below. `custom`: the person's list of applications and
  // tools; `requests`: whether other programs' requests to stay awake count; `extraKinds`: agents of the person's
  // own, matched before the known ones.
  void sample(const std::vector<WatchedApp>& custom, bool requests, const std::vector<AgentKind>& extraKinds);

  // The clock has been set: moves what is remembered of it by so many seconds.
  void moveDates(double by);

  const std::vector<AgentSession>& sessions() const { return sessions_; }          // most recently active first
  const std::unordered_set<Pid>& protectedPids() const { return protectedPids_; }  // agents' trees, their ancestors
  const std::set<std::string, std::less<>>& protectedBundles() const { return protectedBundles_; }  // ".app" paths
  const std::vector<SleepBlocker>& blockers() const { return blockers_; }  // six hours old or older, oldest first

  // The kind of a process by its executable or, for an interpreter, its first three arguments; null if none.
  static const AgentKind* match(const Machine& machine, Pid pid, std::string_view path);

  // The name of the folder a process works in, "~" for the home folder; absent for "/", for a folder inside an
  // application, or if it can't be read.
  static std::optional<std::string> workingDirectoryName(const Machine& machine, Pid pid);

  // Other programs' requests to stay awake that a person would take for work; in no settled order.
  static std::vector<SleepBlocker> sleepRequests(const Machine& machine);

 private:
  struct State;
  const Machine& machine_;
  std::unique_ptr<State> state_;
  std::vector<AgentSession> sessions_;
  std::unordered_set<Pid> protectedPids_;
  std::set<std::string, std::less<>> protectedBundles_;
  std::vector<SleepBlocker> blockers_;
};

}  // namespace tovi
