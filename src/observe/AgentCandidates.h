// Finds the processes that are agents. What was worked out for a process is kept for as long as it runs the same
// program, so that looking again at thousands of processes costs next to nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "observe/AgentKind.h"
#include "platform/Types.h"

namespace tovi {

class ProcessTable;
struct Machine;
struct ProcessEntry;
struct RunningApplication;

class AgentCandidates {
 public:
  struct Candidate {
    Pid pid = 0;
    const AgentKind* kind = nullptr;  // valid until the next find()
  };

  explicit AgentCandidates(const Machine& machine);

  // The agents in the order in which they are looked at: by executable or script, the outermost of each kind only;
  // then the Claude app; then the person's own applications and tools, in the order of their list.
  std::vector<Candidate> find(const ProcessTable& table, const std::vector<RunningApplication>& applications,
                              const std::vector<WatchedApp>& watched, const std::vector<AgentKind>& extraKinds);

  // Whether the last find() saw this process as an agent of the kind by its executable or script, the outermost
  // one or not.
  bool isAgent(Pid pid, std::string_view kindId) const;

 private:
  // What is known of one process.
  struct Fact {
    Pid pid = 0;
    std::uint64_t generation = 0;
    const AgentKind* kind = nullptr;
    bool interpreter = false;  // `kind` came from its arguments, which can change under the same executable
    bool watched = false;      // belongs to one of the watched applications
  };

  Fact learn(const ProcessEntry& entry) const;
  void refresh(Fact& fact, const ProcessEntry& entry, Microseconds now) const;

  const Machine& machine_;
  std::vector<WatchedApp> watchedApps_;
  std::vector<AgentKind> watchedKinds_;  // one for each of watchedApps_
  std::vector<AgentKind> extraKinds_;
  std::vector<Fact> facts_;        // by rising pid
  std::vector<Candidate> agents_;  // by rising pid
  unsigned turn_ = 0;
};

}  // namespace tovi
