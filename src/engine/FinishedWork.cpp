// When an agent has finished: one event for each stretch of work, told once it has been quiet for a while.

#include <algorithm>

#include "engine/Engine.h"
#include "platform/Clock.h"

namespace tovi {

namespace {

constexpr double kQuietBeforeTold = 120;  // seconds; shorter pauses don't split a stretch of work
constexpr double kLeastMinutes = 1;       // shorter bursts end in silence
constexpr double kLeastSession = 0.5;     // minutes; shorter ones leave no trace in the statistics

}  // namespace

void Engine::detectFinished() {
  const Date at = now();
  std::map<std::string, Date> active;
  for (const AgentSession& session : *sessions) {
    if (session.kind.isRequest() || secondsBetween(session.lastActive, at) >= kWorkingSeconds) continue;
    if (session.kind == AgentKind::claudeApp() && !config->countClaudeApp) continue;
    const std::string& id = session.kind.id;
    Date since = at;
    if (const auto working = workingSince.find(id); working != workingSince.end()) {
      since = working->second;
    } else if (const auto idle = idlePending.extract(id)) {
      since = idle.mapped().first;
    }
    active[id] = since;
  }
  for (const auto& [id, since] : workingSince) {
    if (!active.contains(id)) idlePending[id] = {since, at};
  }
  workingSince = std::move(active);

  struct Finished {
    std::string name;
    double minutes;
    bool gone;
  };
  std::vector<Finished> finished;
  for (auto entry = idlePending.begin(); entry != idlePending.end();) {
    const auto [since, quietAt] = entry->second;
    if (secondsBetween(quietAt, at) < kQuietBeforeTold) {
      ++entry;
      continue;
    }
    const std::string id = entry->first;
    entry = idlePending.erase(entry);
    const double minutes = secondsBetween(since, quietAt) / 60;
    if (minutes < kLeastMinutes || previewOnly_ || !onFinished) continue;
    const auto session = std::find_if(sessions->begin(), sessions->end(),
                                      [&](const AgentSession& candidate) { return candidate.kind.id == id; });
    const bool gone = session == sessions->end();
    const auto known = finishedNames.find(id);
    finished.push_back({!gone                          ? session->kind.name
                        : known != finishedNames.end() ? known->second
                                                       : "Agent",
                        minutes, gone});
  }
  for (const AgentSession& session : *sessions) finishedNames[session.kind.id] = session.kind.name;
  // Told last, since who is told may change what was walked above.
  for (const Finished& work : finished) onFinished(work.name, work.minutes, work.gone);
}

void Engine::finishSession(Date openedAt) {
  if (!receipt.get()) return;
  const Receipt& record = *receipt.get();
  const double closedMinutes = secondsBetween(record.closedAt, sleepInfo ? sleepInfo->first : openedAt) / 60;
  double sleptMinutes = 0;
  double avoidedWh = 0;
  const auto percentNow = battery.get() ? std::optional{battery.get()->percent} : std::nullopt;
  if (sleepInfo && record.sleptAt) {
    sleptMinutes = secondsBetween(sleepInfo->first, openedAt) / 60;
    const int percent = record.endPercent ? *record.endPercent : percentNow.value_or(0);
    // It cannot have avoided spending more than the battery held.
    avoidedWh = std::min(sleepInfo->second * sleptMinutes / 60, percent / 100.0 * fullWh);
  }
  if (closedMinutes > kLeastSession || sleptMinutes > kLeastSession) {
    stats.update([&](SavingsStats& account) {
      account.add({record.closedAt, closedMinutes, sessionWh, sleptMinutes, avoidedWh, record.startPercent, percentNow,
                   record.agentName});
    });
    saveStats();
  }
  sleepInfo.reset();
  sessionWh = 0;
  liveSavingW = 0;
}

void Engine::saveStats() {
  if (!previewOnly_) statsUnsaved_ = !stats->save(state_);
}

}  // namespace tovi
