// The machine at a glance, packed for a page on the phone and for the panel. Keys without a value are left out.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agents/AutoApprove.h"
#include "core/Json.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "engine/Estimates.h"
#include "engine/ReportTexts.h"
#include "platform/Workspace.h"

namespace tovi {

namespace {

constexpr std::size_t kMostCandidates = 12;  // beside those on the list; the page has to fit into one message

json::Value agentObject(const AgentSession& session, const Config& config, Date now) {
  const double idle = secondsBetween(session.lastActive, now);
  const bool shownOnly = std::ranges::find(config.trackOnly, session.kind.id) != config.trackOnly.end();
  const bool uncounted = session.kind == AgentKind::claudeApp() && !config.countClaudeApp;
  return {
      {"id", session.kind.id},
      {"name", session.kind.name},
      {"project", session.project.value_or("")},
      {"working", idle < kWorkingSeconds},
      {"idleMinutes", session.lastActive == kDistantPast ? -1 : reports::wholeNumber(idle / 60)},
      {"sleepsIn", reports::wholeNumber(reports::sleepsIn(session, config, now).value_or(0))},
      {"instances", session.instances},
      {"keeps", !shownOnly && !uncounted},
  };
}

}  // namespace

// The person's list, then running applications that could be added to it, by name.
json::Value Engine::watchCandidates() const {
  json::Value list = json::Value::array();
  for (const WatchedApp& app : config->watchedApps) list.push_back({{"name", app.name}, {"on", true}});
  const auto listed = [&](const std::string& path) {
    return std::ranges::find(config->watchedApps, path, &WatchedApp::id) != config->watchedApps.end();
  };
  const std::string_view own = bundlePathOf(machine_.surroundings.executable);
  std::set<std::string> names;
  for (const RunningApplication& app : machine_.workspace.runningApplications()) {
    if (!app.regular || !app.path || app.name.empty() || *app.path == own) continue;
    if (!isSystemApp(*app.path) && !listed(*app.path)) names.insert(app.name);
  }
  for (const std::string& name : names) {
    if (list.size() >= config->watchedApps.size() + kMostCandidates) break;
    list.push_back({{"name", name}, {"on", false}});
  }
  return list;
}

json::Value Engine::panelJSON() const {
  const Date at = now();
  const LidOutcome outcome = lidOutcome();
  json::Value panel{
      {"keeps", outcome.keeps},
      {"headline", outcome.headline},
      {"detail", outcome.detail},
      {"holding", holding.get()},
      {"lidClosed", lidClosed.get()},
      {"mode", rawValue(config->mode)},
      {"preset", rawValue(config->preset)},
      {"snoozed", snoozed.get()},
      {"holds", json::Value::array()},
      {"agents", json::Value::array()},
      {"watch", watchCandidates()},
      {"warnings", json::Value::array()},
      {"host", machine_.surroundings.hostName},
      {"canMeasure", lidClosed && holding && !powerTestRunning && powerCounted()},
      {"checkIn", config->checkInMinutes},
      {"autoApprove", AutoApprove::isOn(state_)},
      {"wakeNeedsSetup", !wakeReady.get()},
  };
  for (const auto& [key, text] : phoneFigures()) panel[key] = text;
  for (const Hold& hold : *holds) panel["holds"].push_back(hold.form());
  for (const AgentSession& session : *sessions) {
    if (!session.kind.isRequest()) panel["agents"].push_back(agentObject(session, config, at));
  }
  if (warning.get()) panel["warnings"].push_back(*warning.get());
  if (systemWatts.get()) panel["watts"] = json::rounded(*systemWatts.get(), 1);
  if (powerTestRunning && powerTestProgress.get()) panel["powerTest"] = *powerTestProgress.get();
  if (powerTestAborted.get()) panel["powerTestAborted"] = *powerTestAborted.get();
  for (const auto& [key, watts] : *powerEffects) panel["savings"][key] = json::rounded(watts, 2);
  if (!powerUnclear->empty()) panel["savingsUnclear"] = *powerUnclear;
  if (const auto until = onUntil()) panel["alwaysUntil"] = unixSeconds(*until);
  if (config->wakeAt) panel["wakeAt"] = *config->wakeAt;
  if (const auto line = reports::batteryDetail(reportReadings())) panel["battery"] = *line;
  return panel;
}

}  // namespace tovi
