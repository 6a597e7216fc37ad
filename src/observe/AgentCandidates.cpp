#include "observe/AgentCandidates.h"

#include <algorithm>

#include "observe/AgentWatcher.h"
#include "observe/AppUsage.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace tovi {
namespace {

constexpr std::string_view kClaudeAppIdentifier = "com.anthropic.claudefordesktop";

// An interpreter can be replaced by itself with other arguments: usually soon after its start, seldom later.
constexpr Microseconds kYoung = 60'000'000;
constexpr unsigned kTurns = 16;

bool belongsTo(const ProcessEntry& entry, const WatchedApp& app) {
  const std::string_view bundle = bundlePathOf(*entry.path);
  return (!bundle.empty() && bundle == app.id) || entry.name() == app.id;
}

}  // namespace

AgentCandidates::AgentCandidates(const Machine& machine) : machine_(machine) {}

AgentCandidates::Fact AgentCandidates::learn(const ProcessEntry& entry) const {
  Fact fact{.pid = entry.pid, .generation = entry.generation};
  if (!entry.path) return fact;
  fact.watched = std::ranges::any_of(watchedApps_, [&](const WatchedApp& app) { return belongsTo(entry, app); });
  const auto own =
      std::ranges::find_if(extraKinds_, [&](const AgentKind& kind) { return kind.executables.contains(entry.name()); });
  if (own != extraKinds_.end()) {
    fact.kind = &*own;
  } else {
    fact.kind = AgentWatcher::match(machine_, entry.pid, *entry.path);
    fact.interpreter = AgentKind::isInterpreter(entry.name());
  }
  return fact;
}

void AgentCandidates::refresh(Fact& fact, const ProcessEntry& entry, Microseconds now) const {
  const bool young = !entry.start || *entry.start + kYoung > now;
  if (young || (static_cast<unsigned>(entry.pid) + turn_) % kTurns == 0) {
    fact.kind = AgentWatcher::match(machine_, entry.pid, *entry.path);
  }
}

std::vector<AgentCandidates::Candidate> AgentCandidates::find(const ProcessTable& table,
                                                              const std::vector<RunningApplication>& applications,
                                                              const std::vector<WatchedApp>& watched,
                                                              const std::vector<AgentKind>& extraKinds) {
  if (watched != watchedApps_ || extraKinds != extraKinds_) {
    facts_.clear();
    watchedApps_ = watched;
    extraKinds_ = extraKinds;
    watchedKinds_.clear();
    for (const WatchedApp& app : watched) watchedKinds_.push_back(AgentKind::watched(app));
  }
  ++turn_;
  const Microseconds now = machine_.processes.now();

  agents_.clear();
  std::vector<const ProcessEntry*> ofWatched;
  std::vector<Fact> facts;
  facts.reserve(table.entries().size());
  auto old = facts_.cbegin();
  for (const ProcessEntry& entry : table.entries()) {
    while (old != facts_.cend() && old->pid < entry.pid) ++old;
    const bool known = old != facts_.cend() && old->pid == entry.pid && old->generation == entry.generation;
    Fact& fact = facts.emplace_back(known ? *old : learn(entry));
    if (known && fact.interpreter) refresh(fact, entry, now);
    if (fact.kind != nullptr) agents_.push_back({entry.pid, fact.kind});
    if (fact.watched) ofWatched.push_back(&entry);
  }
  facts_ = std::move(facts);

  std::vector<Candidate> found;
  for (const Candidate& agent : agents_) {
    const auto above = table.ancestors(agent.pid);
    if (std::ranges::none_of(above, [&](Pid pid) { return isAgent(pid, agent.kind->id); })) found.push_back(agent);
  }

  const auto claude = std::ranges::find_if(applications, [](const RunningApplication& application) {
    return application.bundleIdentifier == kClaudeAppIdentifier;
  });
  if (claude != applications.end()) found.push_back({claude->pid, &AgentKind::claudeApp()});

  for (std::size_t i = 0; i < watchedApps_.size(); ++i) {
    std::vector<Pid> members;
    for (const ProcessEntry* entry : ofWatched) {
      if (belongsTo(*entry, watchedApps_[i])) members.push_back(entry->pid);
    }
    for (const Pid pid : members) {
      const auto parent = table.find(pid)->parent;
      if (!parent || !std::ranges::binary_search(members, *parent)) found.push_back({pid, &watchedKinds_[i]});
    }
  }
  return found;
}

bool AgentCandidates::isAgent(Pid pid, std::string_view kindId) const {
  const auto at = std::ranges::lower_bound(agents_, pid, {}, &Candidate::pid);
  return at != agents_.end() && at->pid == pid && at->kind->id == kindId;
}

}  // namespace tovi
