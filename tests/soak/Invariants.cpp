#include "soak/Invariants.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <unordered_set>

#include "observe/Sensors.h"
#include "observe/SystemSwitches.h"
#include "remote/RemoteControl.h"
#include "safety/Journal.h"
#include "safety/Safety.h"

namespace tovi::soak {

namespace {

using Memory = Invariants::Memory;
using Verdict = std::optional<std::string>;  // absent: it holds

constexpr Verdict kHolds = std::nullopt;

// An agent is looked for in every eighth tick with the lid shut, and what is slowed is looked over in every fifteenth.
constexpr std::int64_t kNoticed = 20;

// Ticks after which everything that a fault spoilt has been tried again.
constexpr std::int64_t kSettled = 60;

std::string pathOf(World& world, Pid pid) {
  const MemoryProcess* process = world.laptop.processes().find(pid);
  return process == nullptr ? "gone" : process->path;
}

std::string_view bundleOf(std::string_view path) {
  const auto at = path.find(".app/");
  return at == std::string_view::npos ? std::string_view{} : path.substr(0, at + 4);
}

const Touched* named(const std::vector<Touched>& journal, Pid pid, Microseconds start) {
  const auto at =
      std::ranges::find_if(journal, [&](const Touched& entry) { return entry.pid == pid && entry.start == start; });
  return at == journal.end() ? nullptr : &*at;
}

// Nobody may touch these: agents and the processes of holds, with what they started and what started them, and every
// part of an application that any of them belongs to; each with the tick since which that is so.
std::unordered_map<Pid, std::int64_t> protectedPids(World& world) {
  std::unordered_map<Pid, std::int64_t> found;
  const auto protect = [&](Pid pid, std::int64_t since) {
    const auto [at, fresh] = found.try_emplace(pid, since);
    if (!fresh) at->second = std::min(at->second, since);
    return fresh || since < at->second;
  };
  const auto& actors = world.cast.all();
  const auto born = [&](Pid pid) {
    const Actor* actor = world.cast.find(pid);
    return actor == nullptr ? 0 : actor->born;
  };
  std::vector<std::pair<Pid, std::int64_t>> roots;
  for (const Actor& actor : actors) {
    if (actor.part == Part::agent) roots.emplace_back(actor.pid, actor.agentSince);
  }
  if (world.engine() != nullptr) {
    for (const Hold& hold : *world.engine()->holds) {
      if (hold.pid) roots.emplace_back(*hold.pid, world.ticks());
    }
  }
  for (const auto& [root, since] : roots) {
    protect(root, since);
    std::vector<Pid> below{root};
    while (!below.empty()) {
      const Pid parent = below.back();
      below.pop_back();
      for (const Actor& actor : actors) {
        const MemoryProcess* process = world.laptop.processes().find(actor.pid);
        if (process == nullptr || process->parent != parent || actor.pid == root) continue;
        protect(actor.pid, std::max(since, actor.born));
        below.push_back(actor.pid);
      }
    }
    for (const MemoryProcess* at = world.laptop.processes().find(root); at != nullptr && at->parent >= 2;) {
      protect(at->parent, since);
      at = world.laptop.processes().find(at->parent);
    }
  }
  std::map<std::string, std::int64_t, std::less<>> bundles;
  for (const auto& [pid, since] : found) {
    const std::string bundle{bundleOf(pathOf(world, pid))};
    if (bundle.empty()) continue;
    const auto [at, fresh] = bundles.try_emplace(bundle, since);
    if (!fresh) at->second = std::min(at->second, since);
  }
  for (const Actor& actor : actors) {
    const std::string path = pathOf(world, actor.pid);
    const auto at = bundles.find(bundleOf(path));
    // Simulators have a rule of their own, to whomever they belong.
    if (at != bundles.end() && !path.ends_with("/Simulator")) protect(actor.pid, std::max(at->second, born(actor.pid)));
  }
  return found;
}

// Who the system itself is, is never touched.
bool isSystemPart(std::string_view path) {
  return (path.starts_with("/System/") && !path.starts_with("/System/Applications/")) ||
         path.starts_with("/Library/Apple/") || path.starts_with("/usr/libexec/") || path.starts_with("/usr/sbin/");
}

bool mayBeSlowedThoughProtected(World& world, Pid pid) {
  const std::string path = pathOf(world, pid);
  return BuildTools::contains(std::string_view(path).substr(path.rfind('/') + 1));
}

// Goes through what was done to processes since the last look.
void followSignals(World& world, Memory& memory) {
  auto& processes = world.laptop.processes();
  if (processes.effects().empty()) return;
  std::optional<std::unordered_map<Pid, std::int64_t>> shielded;
  const auto wrong = [&](const ProcessEffect& effect, const char* what) {
    if (!memory.wrongSignal) {
      memory.wrongSignal = fmt::format("{} {} ({})", what, effect.pid, pathOf(world, effect.pid));
    }
  };
  for (const ProcessEffect& effect : processes.effects()) {
    const bool pauses = effect.kind == ProcessEffect::Kind::pause;
    const std::pair who{effect.pid, effect.start};
    if (effect.pid < 2 || effect.pid == processes.self()) wrong(effect, "a signal to");
    if (!pauses && effect.kind != ProcessEffect::Kind::background) {
      memory.inOurHands.erase(who);
      continue;
    }
    memory.inOurHands[who] = {pauses, pathOf(world, effect.pid)};
    ++(pauses ? world.counts.paused : world.counts.slowed);
    if (isSystemPart(pathOf(world, effect.pid))) wrong(effect, "touched a part of the system:");
    if (!shielded) shielded = protectedPids(world);
    const auto at = shielded->find(effect.pid);
    if (at == shielded->end() || at->second + kNoticed > world.ticks() || world.hung + kNoticed > world.ticks())
      continue;
    if (pauses || !mayBeSlowedThoughProtected(world, effect.pid)) wrong(effect, "touched, though an agent needs it:");
  }
  processes.forgetEffects();
}

// Half a minute at most, and bound to nothing else: a check-in, or a hold of before that waits for its work to be seen.
bool isShort(const Engine& engine) { return engine.checkInUntil || engine.adoptedHoldUntil; }

// Whether anybody could want it to be awake. Work that is seen while nothing asks for it counts when it is asked for.
bool anyReason(World& world) {
  if (const Engine* engine = world.engine()) {
    const bool asked = engine->config->mode == Mode::on || !engine->holds->empty() || isShort(*engine);
    if (asked || !engine->config->watchedApps.empty() || !engine->config->customAgents.empty()) return true;
  }
  if (!world.laptop.report().assertions.empty()) return true;
  const bool openCounts = world.engine() == nullptr || !world.engine()->config->sleepWhenDone;
  const auto isAgent = [&](Pid pid) {
    const Actor* actor = world.cast.find(pid);
    return actor != nullptr && actor->part == Part::agent;
  };
  return std::ranges::any_of(world.cast.all(), [&](const Actor& actor) {
    const MemoryProcess* process = world.laptop.processes().find(actor.pid);
    const bool claudeApp = pathOf(world, actor.pid).find("Claude.app") != std::string::npos;
    const bool runsForAnother = process != nullptr && isAgent(process->parent);
    return claudeApp || actor.part == Part::tool || runsForAnother ||
           (actor.part == Part::agent && (openCounts || actor.busy));
  });
}

bool onBattery(World& world) { return !world.charger || world.weakCharger; }

// The table's questions.

Verdict sleepIsOffOnlyWithItsMarker(World& world, Memory& memory) {
  if (!world.laptop.switches().sleepDisabled || memory.records.contains("hold")) return kHolds;
  return "sleep is off, and there is no marker";
}

Verdict everyTouchedProcessIsInTheJournal(World& world, Memory& memory) {
  std::optional<std::vector<Touched>> journal;
  for (const auto& [actor, process] : memory.touched) {
    if (!memory.records.contains("touched.json")) {
      return fmt::format("{} ({}) is touched, and there is no journal", actor->pid, process->path);
    }
    if (!process->stopped) continue;  // a slow one may have inherited that from one that the journal names
    if (!journal) journal = Journal::load(world.state);
    const Touched* entry = named(*journal, actor->pid, actor->start);
    if (entry == nullptr || !entry->paused) return fmt::format("{} ({}) is stopped", actor->pid, process->path);
  }
  return kHolds;
}

Verdict slowedProcessesAreInTheJournalToo(World& world, Memory& memory) {
  std::optional<std::vector<Touched>> journal;
  for (const auto& [who, touch] : memory.inOurHands) {
    if (touch.paused || pathOf(world, who.first) != touch.path || !world.laptop.processes().background(who.first))
      continue;
    if (world.laptop.processes().startTime(who.first) != who.second) continue;
    if (!journal) journal = Journal::load(world.state);
    if (named(*journal, who.first, who.second) == nullptr) return fmt::format("{} is slow", who.first);
  }
  return kHolds;
}

Verdict nobodyIsSignalledByMistake(World&, Memory& memory) { return memory.wrongSignal; }

Verdict strangersStayAsTheyAre(World& world, Memory&) {
  for (const Actor& actor : world.cast.all()) {
    if (actor.part != Part::stranger || world.laptop.processes().stopped(actor.pid)) continue;
    return fmt::format("{} was stopped by its own person, and goes on", actor.pid);
  }
  return kHolds;
}

Verdict whoIsNeededIsFreed(World& world, Memory& memory) {
  if (memory.touched.empty() || world.engine() == nullptr) return kHolds;
  const auto shielded = protectedPids(world);
  for (const auto& [pid, since] : shielded) {
    const Actor* actor = world.cast.find(pid);
    if (actor == nullptr || actor->part == Part::stranger) continue;
    const auto at = memory.inOurHands.find({pid, actor->start});
    if (at == memory.inOurHands.end()) continue;
    if (at->second.paused || !mayBeSlowedThoughProtected(world, pid)) {
      return fmt::format("{} ({}) is touched, and an agent or a hold needs it", pid, pathOf(world, pid));
    }
  }
  return kHolds;
}

// What still differs from how the person left it.
Verdict changed(World& world, const Memory& memory, bool screenToo) {
  std::vector<std::string> left;
  for (const auto& [actor, process] : memory.touched) {
    left.push_back(fmt::format("{} ({}) is {}", actor->pid, process->path, process->stopped ? "stopped" : "slow"));
  }
  const LaptopSwitches& switches = world.laptop.switches();
  if (switches.batteryMode.begin()->second != world.powerMode) left.emplace_back("the power mode");
  if (switches.autoBackup != world.autoBackup) left.emplace_back("backups");
  if (screenToo && !switches.display(1).enabled) left.emplace_back("the screen is off");
  if (screenToo && switches.display(1).brightness != world.brightness) left.emplace_back("the screen's brightness");
  if (switches.displayAssertion) left.emplace_back("the screen is kept awake");
  for (const std::string& record : memory.records) {
    const bool ofScreen = record == "brightness-restore" || record == "display-off";
    if (record != "hold" && (screenToo || !ofScreen)) left.push_back(record);
  }
  if (left.empty()) return kHolds;
  return fmt::format("{}", fmt::join(left, ", "));
}

Verdict withoutASessionNothingIsChanged(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr || (engine->lidClosed && engine->holding) || engine->measuring) return kHolds;
  return changed(world, memory, !engine->lidClosed);  // nobody sees a screen under the lid
}

Verdict theLidIsKnown(World& world, Memory&) {
  if (world.engine() == nullptr || world.engine()->lidClosed == world.lidClosed()) return kHolds;
  return "the application has it wrong";
}

Verdict theMarkerEndsWithTheNeed(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr || !memory.records.contains("hold")) return kHolds;
  if (engine->holding || engine->checkInUntil || engine->adoptedHoldUntil) return kHolds;
  return "nothing holds, and the marker stands";
}

bool watchdogWatches(World& world) {
  return world.installed && world.laptop.switches().watchdogLoaded &&
         !world.state.read("watchdog.sh").value_or("").empty();
}

// Forty seconds until the beat is old, a minute until the watchdog looks; longer only by as much as the clock was set
// back meanwhile, which makes the beat look fresh.
Verdict nothingOutlivesACrashByMoreThanTheWatchdogsMinute(World& world, Memory& memory) {
  const auto allowed = static_cast<std::int64_t>((106 + world.clockBehindBeat) / World::kTick);
  if (world.app || !watchdogWatches(world) || !world.settled(allowed)) return kHolds;
  if (world.laptop.switches().sleepDisabled || memory.records.contains("hold")) return "sleep is off";
  return changed(world, memory, true);
}

Verdict onlyAReasonKeepsItAwake(World& world, Memory& memory) {
  if (world.engine() == nullptr || !world.laptop.switches().sleepDisabled) return kHolds;
  const double quiet = std::max(world.engine()->config->quietMinutes * 60.0, 120.0) + 120;
  // What was written just before a sleep is first seen after it.
  const double since = world.elapsed() - std::max({memory.reasonSeen, world.startedSince, world.awakeSince});
  if (since < quiet) return kHolds;
  return fmt::format("there has been no reason for {:.0f} s; it says: {}", since, world.engine()->statusLine());
}

Verdict workKeepsItAwake(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr || memory.busySince == 0 || world.ticks() - std::max(memory.busySince, world.startedAt) < 60)
    return kHolds;
  const Config& config = engine->config;
  const bool limited = !engine->setupReady || engine->snoozed || config.mode == Mode::off ||
                       !config.trackOnly.empty() || config.onlyOnPower ||
                       world.laptop.report().thermal >= ThermalState::serious ||
                       (onBattery(world) && world.charge < config.batteryFloor + 6);
  if (limited || world.laptop.switches().sleepDisabled) return kHolds;
  return "an agent works, and it could fall asleep";
}

Verdict holdsEnd(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr || !engine->setupReady) return kHolds;
  for (const Hold& hold : *engine->holds) {
    const auto at = memory.holds.find(hold.id);
    if (at == memory.holds.end()) continue;
    if (at->second.gone) return hold.id + " had ended, and is back";
    const auto alive = [&](Pid pid, std::optional<Microseconds> start) {
      return start && world.laptop.processes().startTime(pid) == start;
    };
    if (at->second.end && world.elapsed() > *at->second.end + 3 + world.clockBehindHolds) {
      return fmt::format("{} had its end {:.0f} s ago", hold.id, world.elapsed() - *at->second.end);
    }
    if (hold.pid && !alive(*hold.pid, at->second.pidStart)) return hold.id + " outlives its process";
    if (hold.owner && !alive(*hold.owner, at->second.ownerStart)) return hold.id + " outlives its owner";
  }
  return kHolds;
}

// A check-in takes 25 seconds, an adopted hold 30.
Verdict shortStaysAreShort(World& world, Memory& memory) {
  const double stays = world.laptop.clock().awake() - memory.shortSince;
  if (world.engine() == nullptr || !isShort(*world.engine()) || stays < 36) return kHolds;
  return fmt::format("a check-in or an adopted hold has lasted for {:.0f} s", stays);
}

Verdict alwaysEndsInTime(World& world, Memory&) {
  const Engine* engine = world.engine();
  const bool isAsked = engine != nullptr && engine->setupReady && engine->config->mode == Mode::on;
  if (!isAsked || !engine->config->alwaysUntil) return kHolds;
  const double late = unixSeconds(world.laptop.now()) - *engine->config->alwaysUntil;
  return late > 3 ? Verdict(fmt::format("it is over since {:.0f} s", late)) : kHolds;
}

Verdict theWatchdogIsLoadedAgain(World& world, Memory&) {
  const Engine* engine = world.engine();
  const bool loaded = world.laptop.switches().watchdogLoaded;
  // Once in a run of the application; what goes away again is left to a warning.
  const bool isDue = world.unloads == 1 && world.calmSinceStart && world.ticks() - world.unloadedAt > 170;
  if (engine == nullptr || !engine->setupReady || loaded || !isDue) return kHolds;
  return "it isn't, and nobody watches";
}

Verdict nothingIsWrongWithinATick(World& world, Memory&) { return world.wrongWithin; }

Verdict theBatteryLimitEndsAnySession(World& world, Memory&) {
  const Engine* engine = world.engine();
  if (engine == nullptr || !world.laptop.switches().sleepDisabled || isShort(*engine)) return kHolds;
  if (world.gaugeBroken || !onBattery(world)) return kHolds;
  if (engine->config->onlyOnPower) return "it runs on the battery, against the setting";
  const int limit = std::min(engine->config->batteryFloor, world.accepted.orLooser(world.loosened).batteryFloor);
  if (world.waived || limit < 1 || static_cast<int>(world.charge) > limit) return kHolds;
  return fmt::format("awake at {:.0f} %, with a limit of {} %", world.charge, limit);
}

Verdict heatEndsAnySession(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr || !world.laptop.switches().sleepDisabled || isShort(*engine)) return kHolds;
  if (!world.accepted.orLooser(world.loosened).heatGuard) return kHolds;
  if (world.laptop.report().thermal == ThermalState::critical) return "awake in critical heat";
  const std::int64_t hot = world.ticks() - std::max({memory.hotSince, world.startedAt, world.lidMovedAt});
  if (memory.hotSince == 0 || hot < 160) return kHolds;
  return fmt::format("hot for {} ticks with the lid shut", hot);
}

Verdict safetyIsLoosenedByThePersonOnly(World& world, Memory& memory) {
  const Accepted least = world.accepted.orLooser(world.loosened);
  const auto looser = [&](int batteryFloor, bool heatGuard) {
    return batteryFloor < least.batteryFloor || (least.heatGuard && !heatGuard);
  };
  if (memory.record && looser(memory.record->batteryFloor, memory.record->heatGuard)) {
    return fmt::format("a limit of {} % is on record as accepted, in place of {} %", memory.record->batteryFloor,
                       world.accepted.batteryFloor);
  }
  const Engine* engine = world.engine();
  if (engine == nullptr) return kHolds;
  if (looser(engine->config->batteryFloor, engine->config->heatGuard)) {
    return fmt::format("the limit is {} %, the guard {}; accepted is {} %, {}", engine->config->batteryFloor,
                       engine->config->heatGuard, world.accepted.batteryFloor, world.accepted.heatGuard);
  }
  if (engine->floorOverride && !world.waived) return "nobody waived the battery limit";
  return kHolds;
}

Verdict energyAddsUp(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr) return kHolds;
  const SavingsStats& stats = engine->stats;
  const double most = 500 * world.elapsed() / 3600;                                // no laptop draws more
  const auto sum = [&](double wattHours) { return std::abs(wattHours) <= most; };  // false of what isn't finite
  if (!sum(engine->sessionWh) || !sum(stats.allTimeWhSaved) || !sum(stats.allTimeWhAvoided)) return "a sum is off";
  const auto watts = [](std::optional<double> drawn) { return !drawn || (*drawn >= 0 && *drawn <= 500); };
  if (!watts(engine->systemWatts) || !watts(engine->openDraw) || !watts(engine->closedDraw)) return "a draw is off";
  if (!(std::abs(engine->liveSavingW) <= 500) || !(engine->fullWh > 0 && engine->fullWh < 500))
    return "a figure is off";
  for (const auto& [app, usual] : engine->baseline) {
    if (!(usual >= 0 && usual <= 500)) return "the usual draw of " + app;
  }
  if (memory.avoidedOf == world.startedAt && stats.allTimeWhAvoided < memory.avoidedWh)
    return "the energy avoided runs backwards";
  memory.avoidedOf = world.startedAt;
  memory.avoidedWh = stats.allTimeWhAvoided;
  if (stats.sessions.empty()) return kHolds;
  const SavingsStats::Session& last = stats.sessions.back();
  const auto minutes = [&](double span) { return span >= -0.1 && span <= world.elapsed() / 60 + 1; };
  if (minutes(last.closedMinutes) && minutes(last.sleptMinutes)) return kHolds;
  return fmt::format("a session of {} and {} minutes", last.closedMinutes, last.sleptMinutes);
}

Verdict nothingPilesUp(World& world, Memory&) {
  const auto more = [](std::size_t count, std::size_t most, const char* what) -> Verdict {
    return count <= most ? kHolds : Verdict(fmt::format("{} {}", count, what));
  };
  if (world.ticks() % 64 == 0) {
    for (const auto& [folder, most] : {std::pair{world.state.dir(), 40}, std::pair{world.state.path("replies"), 400}}) {
      const auto names = world.laptop.files().list(folder);
      if (auto found = more(names ? names->size() : 0, static_cast<std::size_t>(most), "files")) return found;
    }
  }
  const Engine* engine = world.engine();
  if (engine == nullptr) return kHolds;
  const std::tuple<std::size_t, std::size_t, const char*> sizes[] = {
      {engine->baseline.size(), 64, "usual draws"},
      {engine->workingSince.size(), 32, "stretches of work"},
      {engine->idlePending.size(), 32, "agents gone idle"},
      {engine->finishedNames.size(), 64, "names of agents"},
      {engine->holds->size(), 40, "holds"},
      {engine->touched->size(), 64, "touched processes"},
      {engine->targeted->size(), 64, "targeted applications"},
      {engine->sessions->size(), 64, "agents"},
      {engine->blockers->size(), 64, "requests"},
      {engine->apps->size(), 60, "applications"},
      {engine->stats->sessions.size(), 400, "sessions"},
      {engine->pendingNotes.size(), 16, "notes"},
      {engine->config->watchedApps.size() + engine->config->trackOnly.size() + engine->config->customAgents.size() +
           engine->config->appRules.size(),
       64, "entries of the settings"},
      {world.laptop.http().openReads(), 2, "connections"},
  };
  for (const auto& [count, most, what] : sizes) {
    if (auto found = more(count, most, what)) return found;
  }
  if (world.app->remote() == nullptr) return kHolds;
  return more(world.app->remote()->guardian.seen.size() + world.app->remote()->guardian.recent.size(), 4000,
              "remembered messages");
}

constexpr const char* kFarewell = "who ends gives everything back";

enum class When { always, settled };

// A row is broken when it has been so for more ticks than its patience: without any it counts at once, and at the
// moment of a death too. One that asks for a settled world counts from the last fault, death or start on.
struct Row {
  const char* name;
  When when;
  int patience;
  Verdict (*ask)(World&, Memory&);
};

constexpr Row kRows[] = {
    {"sleep is off only with its marker", When::always, 0, sleepIsOffOnlyWithItsMarker},
    {"the record comes before the change", When::always, 0, nothingIsWrongWithinATick},
    {"every touched process is in the journal", When::always, 0, everyTouchedProcessIsInTheJournal},
    {"slowed processes are in the journal too", When::always, 0, slowedProcessesAreInTheJournalToo},
    {"nobody is signalled by mistake", When::always, 0, nobodyIsSignalledByMistake},
    {"strangers stay as they are", When::always, 0, strangersStayAsTheyAre},
    {"who is needed is freed", When::settled, 40, whoIsNeededIsFreed},
    {"without a session nothing is changed", When::settled, 12, withoutASessionNothingIsChanged},
    {"the lid is known", When::settled, 2, theLidIsKnown},
    {"the marker ends with the need", When::settled, 12, theMarkerEndsWithTheNeed},
    {"nothing outlives a crash by more than the watchdog's minute", When::settled, 4,
     nothingOutlivesACrashByMoreThanTheWatchdogsMinute},
    {"only a reason keeps it awake", When::settled, 10, onlyAReasonKeepsItAwake},
    {"work keeps it awake", When::settled, 30, workKeepsItAwake},
    {"holds end", When::settled, 3, holdsEnd},
    {"short stays are short", When::settled, 3, shortStaysAreShort},
    {"always ends in time", When::settled, 3, alwaysEndsInTime},
    {"the watchdog is loaded again", When::settled, 3, theWatchdogIsLoadedAgain},
    {"the battery limit ends any session", When::settled, 24, theBatteryLimitEndsAnySession},
    {"heat ends any session", When::settled, 4, heatEndsAnySession},
    {"safety is loosened by the person only", When::always, 0, safetyIsLoosenedByThePersonOnly},
    {"energy adds up", When::always, 0, energyAddsUp},
    {"nothing piles up", When::always, 0, nothingPilesUp},
};

void rememberHolds(World& world, Memory& memory) {
  const Engine* engine = world.engine();
  if (engine == nullptr) return;
  const std::vector<Hold>& holds = engine->holds;
  for (auto& [id, known] : memory.holds) {
    const bool stands = std::ranges::find(holds, id, &Hold::id) != holds.end();
    if (!stands && world.settled(kSettled)) known.gone = true;
  }
  if (memory.holds.size() > 1000) std::erase_if(memory.holds, [](const auto& known) { return known.second.gone; });
  for (const Hold& hold : holds) {
    const auto [at, fresh] = memory.holds.try_emplace(hold.id);
    if (!fresh) continue;
    Memory::Hold& known = at->second;
    if (hold.until) known.end = world.elapsed() + secondsBetween(world.laptop.now(), *hold.until);
    // What stands at the end of the tick in which it was made; a process that has gone by then bounds it all the same.
    if (hold.pid) known.pidStart = hold.pidStart;
    if (hold.owner) known.ownerStart = world.laptop.processes().startTime(*hold.owner);
  }
}

// What the disk and the process table say, read once for all questions.
void readEvidence(World& world, Memory& memory) {
  static const std::set<std::string, std::less<>> kRecords = {
      "hold", "touched.json", "powermode-restore", "timemachine-restore", "brightness-restore", "display-off"};
  memory.records.clear();
  for (std::string& name : world.laptop.files().list(world.state.dir()).value_or(std::vector<std::string>{})) {
    if (kRecords.contains(name)) memory.records.insert(std::move(name));
  }
  memory.touched.clear();
  for (const Actor& actor : world.cast.all()) {
    const MemoryProcess* process = world.laptop.processes().find(actor.pid);
    if (process == nullptr || actor.part == Part::stranger || !(process->stopped || process->background)) continue;
    // Who is slow without an entry of its own, by its parent or under another path, is freed by the machine, which
    // doesn't tell whether it could: one refusal of that stays unknown.
    const auto touch = memory.inOurHands.find({actor.pid, actor.start});
    const bool entered = touch != memory.inOurHands.end() && touch->second.path == process->path;
    if (process->stopped || entered || world.failedAt < actor.born) memory.touched.emplace_back(&actor, process);
  }
  if (auto text = world.state.read("safety.json"); text != memory.safetyText) {
    memory.safetyText = std::move(text);
    const auto safety = Safety::load(world.state);
    memory.record = safety ? std::optional{Accepted{safety->batteryFloor, safety->heatGuard}} : std::nullopt;
  }
}

}  // namespace

Invariants::Invariants() : badFor_(std::size(kRows)) {}

void Invariants::remember(World& world) {
  rememberHolds(world, memory_);
  if (anyReason(world)) memory_.reasonSeen = world.elapsed();
  if (world.ticks() - world.transcriptAt < 2) memory_.reasonSeen = world.elapsed();
  if (const Engine* engine = world.engine()) {
    const std::pair stays{engine->checkInUntil, engine->adoptedHoldUntil};
    if (stays != memory_.shortStays || !isShort(*engine)) memory_.shortSince = world.laptop.clock().awake();
    memory_.shortStays = stays;
  }
  const bool busy =
      std::ranges::any_of(world.cast.all(), [](const Actor& actor) { return actor.part == Part::agent && actor.busy; });
  if (!busy || world.engine() == nullptr) {
    memory_.busySince = 0;
  } else if (memory_.busySince == 0) {
    memory_.busySince = world.ticks();
  }
  const bool hot = world.laptop.report().thermal >= ThermalState::serious && world.lidClosed();
  if (!hot) {
    memory_.hotSince = 0;
  } else if (memory_.hotSince == 0) {
    memory_.hotSince = world.ticks();
  }
}

void Invariants::afterTick(World& world) {
  remember(world);
  look(world, false);
  takeOver(world);
}

void Invariants::atDeath(World& world) {
  look(world, true);
  takeOver(world);
}

void Invariants::atFarewell(World& world) {
  look(world, true);
  takeOver(world);
  if (world.laptop.switches().sleepDisabled || memory_.records.contains("hold"))
    throw Broken{kFarewell, "sleep is off"};
  if (const Verdict left = changed(world, memory_, true)) throw Broken{kFarewell, *left};
}

void Invariants::takeOver(World& world) {
  if (!memory_.record) return;
  if (world.accepted != *memory_.record) world.acceptedAt = world.ticks();
  world.accepted = *memory_.record;
  if (world.loosened == memory_.record) world.loosened.reset();
}

void Invariants::look(World& world, bool death) {
  followSignals(world, memory_);
  readEvidence(world, memory_);
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    const Row& row = kRows[i];
    if (death && (row.when != When::always || row.patience > 0)) continue;
    if (row.when == When::settled && !world.settled(1)) {
      badFor_[i] = 0;
      continue;
    }
    const Verdict found = row.ask(world, memory_);
    badFor_[i] = found ? badFor_[i] + 1 : 0;
    if (badFor_[i] > row.patience) throw Broken{row.name, *found};
  }
}

}  // namespace tovi::soak
