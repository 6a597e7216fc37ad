#include "observe/AgentWatcher.h"

#include <algorithm>
#include <unordered_map>

#include "observe/AgentCandidates.h"
#include "observe/AppUsage.h"
#include "observe/Transcripts.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace tovi {
namespace {

// A child that starts with its agent is part of it (a language server, a helper); one that has run for an hour
// is a server that the agent left behind, not a command it waits for.
constexpr Microseconds kToolAfterAgent = 30'000'000;
constexpr Microseconds kToolAtMost = 3'600'000'000;

// A request to stay awake of this age was more likely forgotten than meant.
constexpr double kForgottenAfter = 6 * 3600.0;

constexpr double kNanoPerUnit = 1e9;

std::string_view lastComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

void protect(std::unordered_set<Pid>& pids, const ProcessTable& table, const std::vector<Pid>& tree) {
  pids.insert(tree.begin(), tree.end());
  const auto above = table.ancestors(tree.front());
  pids.insert(above.begin(), above.end());
}

// One session for each kind, in order of appearance.
std::vector<AgentSession> merged(std::vector<AgentSession> sessions) {
  std::vector<AgentSession> result;
  for (AgentSession& session : sessions) {
    const auto first =
        std::ranges::find_if(result, [&](const AgentSession& standing) { return standing.kind.id == session.kind.id; });
    if (first == result.end()) {
      result.push_back(std::move(session));
      continue;
    }
    first->watts += session.watts;
    first->toolRunning = first->toolRunning || session.toolRunning;
    first->instances += 1;
    first->lastActive = std::max(first->lastActive, session.lastActive);
    if (!first->project) first->project = std::move(session.project);
    if (!first->detail) first->detail = std::move(session.detail);
  }
  return result;
}

}  // namespace

struct AgentWatcher::State {
  // One look at the machine.
  struct Look {
    const ProcessTable& table;
    Date now;
    Microseconds mark = 0;                               // now, on the scale of start times
    double elapsed = 0;                                  // seconds since the look before; 0 at the first one
    std::unordered_map<Pid, std::uint64_t> energy = {};  // nanojoules so far, of every process in an agent's tree
  };

  explicit State(const Machine& of) : machine(of), candidates(of), transcripts(of) {}

  std::optional<Microseconds> startOf(const Look& look, Pid pid) const;
  double watts(Look& look, const std::vector<Pid>& tree) const;
  bool toolRunning(const Look& look, const AgentCandidates::Candidate& agent, const std::vector<Pid>& tree) const;

  const Machine& machine;
  AgentCandidates candidates;
  Transcripts transcripts;
  std::optional<Seconds> lastSample;  // since boot, so that a step of the clock doesn't distort watts
  Microseconds lastMark = 0;
  std::unordered_map<Pid, std::uint64_t> lastEnergy;
  std::map<std::string, Date> requestFirstSeen;  // by "<pid>|<name>", of requests that don't tell their start
};

std::optional<Microseconds> AgentWatcher::State::startOf(const Look& look, Pid pid) const {
  if (const ProcessEntry* entry = look.table.find(pid); entry != nullptr && entry->start) return entry->start;
  return machine.processes.startTime(pid);
}

double AgentWatcher::State::watts(Look& look, const std::vector<Pid>& tree) const {
  std::uint64_t spent = 0;
  for (const Pid pid : tree) {
    auto counter = look.energy.find(pid);
    if (counter == look.energy.end()) {
      const auto usage = machine.processes.usage(pid);
      if (!usage) continue;
      counter = look.energy.emplace(pid, usage->energyNanojoules).first;
    }
    if (const auto before = lastEnergy.find(pid); before != lastEnergy.end()) {
      if (before->second <= counter->second) spent += counter->second - before->second;
    } else if (lastSample) {
      // All of a process that started since. One that was there before and only joined the tree may have
      // spent its energy long ago.
      if (const auto start = startOf(look, pid); start && *start >= lastMark) spent += counter->second;
    }
  }
  return lastSample && look.elapsed > 0 ? static_cast<double>(spent) / kNanoPerUnit / look.elapsed : 0;
}

bool AgentWatcher::State::toolRunning(const Look& look, const AgentCandidates::Candidate& agent,
                                      const std::vector<Pid>& tree) const {
  if (agent.kind->isApp() || agent.kind->isRequest()) return false;
  const auto agentStart = startOf(look, agent.pid);
  if (!agentStart) return false;
  return std::ranges::any_of(tree, [&](Pid pid) {
    if (pid == agent.pid || candidates.isAgent(pid, agent.kind->id)) return false;
    const auto start = startOf(look, pid);
    // Asked afresh at a hit: in the picture a command that has ended may stand a while.
    return start && *start > *agentStart + kToolAfterAgent && *start < look.mark && look.mark - *start < kToolAtMost &&
           machine.processes.startTime(pid) == start;
  });
}

AgentWatcher::AgentWatcher(const Machine& machine) : machine_(machine), state_(std::make_unique<State>(machine)) {}
AgentWatcher::~AgentWatcher() = default;

void AgentWatcher::sample(const std::vector<WatchedApp>& custom, bool requests,
                          const std::vector<AgentKind>& extraKinds) {
  // Asked first: a machine may answer them from the process table, which then is brought up to date.
  const auto applications = machine_.workspace.runningApplications();
  const auto asked = sleepRequests(machine_);

  const Seconds sinceBoot = machine_.clock.sinceBoot();
  const Microseconds mark = machine_.processes.now();  // before the picture: what starts meanwhile is new next time
  State::Look look{.table = machine_.processes.table(),
                   .now = machine_.clock.now(),
                   .mark = mark,
                   .elapsed = state_->lastSample ? (sinceBoot - *state_->lastSample).count() : 0};
  const ProcessTable& table = look.table;

  const auto agents = state_->candidates.find(table, applications, custom, extraKinds);
  const auto changedKinds = state_->transcripts.changedKinds();

  std::vector<AgentSession> found;
  std::unordered_set<Pid> protectedNow;
  for (const auto& agent : agents) {
    const auto tree = table.tree(agent.pid);
    protect(protectedNow, table, tree);

    const auto previous = std::ranges::find_if(sessions_, [&](const AgentSession& session) {
      return session.pid == agent.pid && session.kind == *agent.kind;
    });
    const bool known = previous != sessions_.end();

    AgentSession session;
    session.pid = agent.pid;
    session.kind = *agent.kind;
    session.watts = state_->watts(look, tree);
    session.toolRunning = state_->toolRunning(look, agent, tree);
    if (session.watts > session.kind.idleWatts || changedKinds.contains(session.kind.id) || session.toolRunning) {
      session.lastActive = look.now;
    } else if (known) {
      session.lastActive = previous->lastActive;
    }
    session.project = known && previous->project ? previous->project : workingDirectoryName(machine_, agent.pid);
    found.push_back(std::move(session));
  }

  std::vector<SleepBlocker> forgotten;
  std::map<std::string, Date> firstSeen;
  for (SleepBlocker request : asked) {
    if (request.pid == machine_.processes.self() || protectedNow.contains(request.pid)) continue;
    const std::string key = std::to_string(request.pid) + "|" + request.name;
    if (const auto seen = state_->requestFirstSeen.find(key); seen != state_->requestFirstSeen.end()) {
      firstSeen.insert(*seen);
    }
    if (request.sinceUnknown) {
      request.since = firstSeen.try_emplace(key, look.now).first->second;
      request.sinceUnknown = false;
    }
    if (secondsBetween(request.since, look.now) >= kForgottenAfter) {
      forgotten.push_back(std::move(request));
    } else if (requests) {
      protect(protectedNow, table, {request.pid});
      AgentSession session;
      session.pid = request.pid;
      session.kind = AgentKind::request(request.process);
      session.lastActive = look.now;
      session.detail = std::move(request.name);
      found.push_back(std::move(session));
    }
  }
  std::ranges::stable_sort(forgotten, {}, &SleepBlocker::since);

  std::set<std::string, std::less<>> bundles;
  for (const Pid pid : protectedNow) {
    const ProcessEntry* entry = table.find(pid);
    if (entry == nullptr || !entry->path) continue;
    if (const auto bundle = bundlePathOf(*entry->path); !bundle.empty()) bundles.emplace(bundle);
  }

  sessions_ = merged(std::move(found));
  std::ranges::stable_sort(sessions_, std::ranges::greater{}, &AgentSession::lastActive);
  protectedPids_ = std::move(protectedNow);
  protectedBundles_ = std::move(bundles);
  blockers_ = std::move(forgotten);
  state_->requestFirstSeen = std::move(firstSeen);
  state_->lastEnergy = std::move(look.energy);
  state_->lastSample = sinceBoot;
  state_->lastMark = look.mark;
}

void AgentWatcher::moveDates(double by) {
  for (AgentSession& session : sessions_) {
    if (session.lastActive != kDistantPast) session.lastActive = session.lastActive + by;
  }
  for (SleepBlocker& blocker : blockers_) blocker.since = blocker.since + by;
  for (auto& [key, seen] : state_->requestFirstSeen) seen = seen + by;
  // Files of before have dates of the old clock, which can't be compared with those to come.
  state_->transcripts.forget();
}

const AgentKind* AgentWatcher::match(const Machine& machine, Pid pid, std::string_view path) {
  const std::string_view name = lastComponent(path);
  for (const AgentKind& kind : AgentKind::all()) {
    if (kind.executables.contains(name)) return &kind;
  }
  if (!AgentKind::isInterpreter(name)) return nullptr;

  // The script stands among the first arguments; further back are its own, which may name anything.
  constexpr std::size_t kArguments = 3;
  const auto arguments = machine.processes.arguments(pid);
  std::string text;
  for (std::size_t i = 0; i < std::min(kArguments, arguments.size()); ++i) {
    if (i > 0) text += ' ';
    text += arguments[i];
  }
  for (const AgentKind& kind : AgentKind::all()) {
    for (const std::string& hint : kind.scriptHints) {
      if (text.find(hint) != std::string::npos) return &kind;
    }
  }
  return nullptr;
}

std::optional<std::string> AgentWatcher::workingDirectoryName(const Machine& machine, Pid pid) {
  const auto path = machine.processes.workingDirectory(pid);
  if (!path || path->empty() || *path == "/" || !bundlePathOf(*path).empty()) return std::nullopt;
  if (*path == machine.surroundings.home) return "~";
  return std::string(lastComponent(*path));
}

}  // namespace tovi
