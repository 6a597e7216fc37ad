// What runs slower or not at all while nobody looks at the screen, and what is never touched: an agent, anything
// that an agent depends on, and any process whose identity isn't certain.

#include <algorithm>
#include <unordered_map>

#include "core/Guard.h"
#include "engine/Engine.h"
#include "observe/AppClasses.h"
#include "observe/SystemSwitches.h"
#include "platform/Files.h"
#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace tovi {

namespace {

constexpr char kClaudeDesktop[] = "com.anthropic.claudefordesktop";
constexpr char kOwnBundle[] = "com.norvane.Tovi";
constexpr char kXcode[] = "com.apple.dt.Xcode";
constexpr char kSimulator[] = "com.apple.iphonesimulator";

// Ordinary applications that come with the system: they may be slowed like any other.
bool isOrdinarySystemApp(std::string_view path) {
  return path.find("/Cryptexes/App/System/Applications/") != std::string_view::npos ||
         path.starts_with("/System/Applications/");
}

bool isSystemPart(std::string_view path) {
  return !isOrdinarySystemApp(path) && (path.starts_with("/System/") || path.starts_with("/Library/Apple/"));
}

}  // namespace

AppRule Engine::rule(const std::optional<std::string>& bundle, Preset preset) const {
  if (bundle) {
    if (const auto own = config->appRules.find(*bundle); own != config->appRules.end()) return own->second;
  }
  switch (preset) {
    case Preset::speed:
      return AppRule::leave;
    case Preset::balanced:
      return AppRule::slow;
    case Preset::longest:
      break;
  }
  if (!bundle) return AppRule::slow;
  if (AppClasses::isMediaOrCall(*bundle)) return AppRule::leave;
  if (AppClasses::isAgentService(*bundle)) return AppRule::slow;
  return AppRule::pause;
}

std::unordered_set<Pid> Engine::protectedPidSet(const ProcessTable& table) const {
  std::unordered_set<Pid> found = watcher_.protectedPids();
  for (const Hold& hold : *holds) {
    if (!hold.pid) continue;
    for (const Pid pid : table.tree(*hold.pid)) found.insert(pid);
    for (const Pid pid : table.ancestors(*hold.pid)) found.insert(pid);
  }
  return found;
}

ClosedTargets Engine::closedTargets(Preset preset, const Skip& skip) {
  ClosedTargets targets;
  const Pid self = machine_.processes.self();
  // Asked for first: a machine may answer it from the same picture of all processes, which is then made anew.
  std::vector<RunningApplication> regular = machine_.workspace.runningApplications();
  const ProcessTable& table = machine_.processes.table();
  const auto shielded = protectedPidSet(table);
  const auto touchable = [&](Pid pid) { return pid >= 2 && pid != self; };

  auto shieldedApps = watcher_.protectedBundles();
  for (const Pid pid : shielded) {
    const ProcessEntry* entry = table.find(pid);
    if (entry == nullptr || !entry->path) continue;
    if (const auto app = bundlePathOf(*entry->path); !app.empty()) shieldedApps.emplace(app);
  }

  std::erase_if(regular, [](const RunningApplication& app) { return !app.regular; });
  std::set<std::string, std::less<>> regularPaths;
  for (RunningApplication& app : regular) {
    if (!app.path || !app.path->ends_with(".app")) {
      app.path.reset();
      continue;
    }
    app.path = machine_.files.resolve(*app.path).value_or(*app.path);
    regularPaths.insert(*app.path);
  }

  background = preset == Preset::speed ? BackgroundWork::Found{} : BackgroundWork::scan(machine_, table);
  const BackgroundWork::Found& found = background;

  const std::string ownApp{bundlePathOf(machine_.surroundings.executable)};
  std::map<std::string, AppRule, std::less<>> ruleByPath;
  if (!skip.contains("apps")) {
    for (const RunningApplication& app : regular) {
      const std::string bundle = app.bundleIdentifier.value_or("");
      if (found.agentUsesXcode && (bundle == kXcode || bundle == kSimulator)) continue;
      if (found.testsRunning && bundle == kSimulator) continue;
      if (!app.path || app.pid == self || bundle == kClaudeDesktop || bundle == kOwnBundle) continue;
      const bool isShielded = shieldedApps.contains(*app.path) && !without(Guard::shield);
      if (*app.path == ownApp || isShielded || isSystemPart(*app.path)) continue;
      AppRule chosen = rule(app.bundleIdentifier, preset);
      if (chosen == AppRule::leave) continue;
      // What looks like a service of an agent is not frozen unless the person said so.
      if (chosen == AppRule::pause && !config->appRules.contains(bundle) &&
          AppClasses::looksLikeAgentService(app.name)) {
        chosen = AppRule::slow;
      }
      ruleByPath[*app.path] = chosen;
    }
  }

  // Identity is read afresh, since what is written down here will be signalled; and it must be that of the process
  // that the choice was made for, which may have become another program since the picture was taken.
  const auto add = [&](Pid pid, AppRule chosen, std::optional<std::string> bundle) {
    const ProcessEntry* seen = table.find(pid);
    const auto start = machine_.processes.startTime(pid);
    auto path = machine_.processes.path(pid);
    if (seen == nullptr || !start || !path || seen->start != start || seen->path != path) return;
    targets[pid] = ClosedTarget{chosen, *start, std::move(*path), std::move(bundle)};
  };

  for (const ProcessEntry& entry : table.entries()) {
    if (!entry.path || !touchable(entry.pid)) continue;
    const bool isShielded = shielded.contains(entry.pid);
    if (const auto bundle = bundlePathOf(*entry.path); !bundle.empty() && !isShielded) {
      const auto app = ruleByPath.find(bundle);
      if (app != ruleByPath.end()) add(entry.pid, app->second, app->first);
    }
    // The one case in which a protected process is touched, and never more than slowed.
    if (isShielded && config->slowBuildsWhileClosed && !skip.contains("builds") && BuildTools::contains(entry.name())) {
      add(entry.pid, AppRule::slow, std::nullopt);
    }
  }
  if (preset == Preset::speed) return targets;

  const auto pause = [&](Pid pid) {
    if (touchable(pid) && !shielded.contains(pid)) add(pid, AppRule::pause, std::nullopt);
  };
  if (config->pauseSimulators && !found.testsRunning && !found.agentUsesXcode && !skip.contains("simulators")) {
    for (const Pid pid : found.previews) pause(pid);
    if (!config->shutDownSimulators) {
      for (const Pid pid : found.simulators) pause(pid);
    }
  }
  if (config->pauseBackgroundAudio && !skip.contains("audio")) {
    for (const auto& [pid, name] : found.audio) {
      const auto path = machine_.processes.path(pid);
      if (!path || AppUsage::isSystemPath(*path)) continue;
      if (const auto app = bundlePathOf(*path); !app.empty() && regularPaths.contains(app))
        continue;  // it follows its own rule
      pause(pid);
    }
  }
  return targets;
}

void Engine::applyClosedTargets(std::optional<Preset> preset, const Skip& skip) {
  if (previewOnly_) return;
  // Somebody else put everything back, for this process looked dead; or only took the record away.
  if (!touched->empty() && !state_.exists("touched.json")) {
    touched = Journal::undoAll(machine_, touched);
    Journal::save(machine_, state_, touched);
  }
  const bool anySlowed = std::ranges::any_of(*touched, [](const Touched& entry) { return !entry.paused; });
  const ClosedTargets targets = closedTargets(preset.value_or(heatForced ? Preset::longest : config->preset), skip);

  std::vector<Touched> staying;
  std::vector<Touched> stale;
  for (const Touched& entry : *touched) {
    const auto at = targets.find(entry.pid);
    const bool stays = at != targets.end() && at->second.start == entry.start && at->second.path == entry.path &&
                       entry.paused == (at->second.rule == AppRule::pause);
    (stays ? staying : stale).push_back(entry);
  }
  // A slowed process may have started threads since.
  for (const Touched& entry : staying) {
    if (!entry.paused) machine_.processes.setBackgroundPriority(entry.pid, entry.start);
  }
  std::vector<Touched> left = Journal::undo(machine_, stale);
  if (anySlowed) {
    // What a slowed process started is slow too, and may be one that nobody may touch. Freed before the process is
    // forgotten, by which it would be found again.
    std::unordered_set<Pid> slowed;
    for (const Touched& entry : staying) slowed.insert(entry.pid);
    machine_.processes.restoreInheritedPriority(slowed);
  }
  if (!stale.empty()) {
    staying.insert(staying.end(), left.begin(), left.end());
    touched = staying;
    Journal::save(machine_, state_, touched);
  }

  std::map<std::string, AppRule> byApp;
  for (const auto& [pid, target] : targets) {
    if (target.bundle) byApp.emplace(*target.bundle, target.rule);
  }
  targeted = std::move(byApp);

  std::vector<Touched> fresh;
  for (const auto& [pid, target] : targets) {
    const bool known =
        std::any_of(staying.begin(), staying.end(), [&, pid = pid, start = target.start](const Touched& entry) {
          return entry.pid == pid && entry.start == start;
        });
    if (!known) fresh.push_back({pid, target.start, target.path, target.rule == AppRule::pause});
  }
  if (fresh.empty()) return;

  std::vector<Touched> all = staying;
  all.insert(all.end(), fresh.begin(), fresh.end());
  // Nothing is done to a process that the journal doesn't know.
  if (!Journal::save(machine_, state_, all) && !without(Guard::journalFirst)) return;
  touched = all;

  const Pid self = machine_.processes.self();
  std::vector<Touched> kept = staying;
  for (const Touched& entry : fresh) {
    const auto stillThat = [&] { return machine_.processes.path(entry.pid) == entry.path; };
    if (entry.pid < 2 || entry.pid == self || !stillThat()) continue;
    const bool done = entry.paused ? machine_.processes.pause(entry.pid, entry.start)
                                   : machine_.processes.setBackgroundPriority(entry.pid, entry.start);
    if (done && stillThat()) {
      kept.push_back(entry);
      continue;
    }
    // Slowed in part, or another program since: by its path it would never be found again.
    const bool undone = entry.paused ? !done || machine_.processes.resume(entry.pid, entry.start)
                                     : machine_.processes.setNormalPriority(entry.pid, entry.start);
    if (!undone && machine_.processes.startTime(entry.pid) == entry.start) kept.push_back(entry);
  }
  if (kept.size() == all.size()) return;
  touched = kept;
  Journal::save(machine_, state_, touched);
}

void Engine::restoreApps() {
  if (previewOnly_) return;
  const bool recorded = state_.exists("touched.json");
  if (recorded || !touched->empty()) {
    const std::vector<Touched> before = touched->empty() ? Journal::load(state_) : *touched;
    touched = Journal::undoAll(machine_, before);
    if (!recorded || *touched != before || touched->empty()) Journal::save(machine_, state_, touched);
  }
  if (touched->empty()) targeted.clear();
  liveSavingW = 0;
}

bool Engine::isProtected(const AppUsage& app) const {
  if (app.bundleID == kOwnBundle || app.bundleID == kClaudeDesktop) return true;
  if (watcher_.protectedBundles().contains(app.id)) return true;
  if (!app.id.ends_with(".app")) return true;
  return isSystemPart(app.id);
}

std::vector<AppUsage> Engine::userApps() const {
  std::vector<AppUsage> found;
  for (const AppUsage& app : *apps) {
    if (!app.id.ends_with(".app") || app.bundleID == kOwnBundle) continue;
    if (app.id.starts_with("/System/Library/") || app.id.starts_with("/System/Cryptexes/") ||
        app.id.starts_with("/Library/Apple/") || app.id.find("/CoreSimulator/") != std::string::npos ||
        app.id.find(".simruntime/") != std::string::npos) {
      continue;
    }
    found.push_back(app);
  }
  return found;
}

bool Engine::isSystemApp(const std::string& path) { return isSystemPart(path); }

}  // namespace tovi
