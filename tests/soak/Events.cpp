#include "soak/Events.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "soak/Requests.h"
#include "soak/World.h"

namespace tovi::soak {

namespace {

// The processes.

void agentComes(World& world) {
  if (world.cast.count(Part::agent) >= 3) return;
  world.tell(fmt::format("agent {} starts", world.cast.startAgent(world.ticks())));
}

void agentChangesPace(World& world) {
  const Pid pid = world.cast.any(Part::agent);
  for (Actor& actor : world.cast.all()) {
    if (actor.pid == pid) world.cast.setBusy(actor, world.random.chance(0.5));
  }
}

void agentWritesItsTranscript(World& world) {
  if (world.cast.count(Part::agent) == 0) return;
  world.transcriptAt = world.ticks();
  world.laptop.files().put("/home/anna/.claude/projects/project/session.jsonl", "{}\n");
}

void agentRunsTool(World& world) {
  const Pid parent = world.cast.any(world.random.chance(0.8) ? Part::agent : Part::tool);
  if (parent == 0 || world.cast.count(Part::tool) >= 12) return;
  const Pid pid = world.cast.startTool(parent, world.ticks());
  world.tell(fmt::format("{} starts {} ({})", parent, pid, world.laptop.processes().find(pid)->path));
}

void someoneGoes(World& world, Part part) {
  const Pid pid = world.cast.any(part);
  if (pid == 0) return;
  world.tell(fmt::format("process {} ends", pid));
  world.cast.exit(pid);
}
void agentGoes(World& world) { someoneGoes(world, Part::agent); }
void toolEnds(World& world) { someoneGoes(world, Part::tool); }
void helperEnds(World& world) { someoneGoes(world, Part::helper); }
void simulatorEnds(World& world) { someoneGoes(world, Part::simulator); }

void appEnds(World& world) {
  if (world.cast.count(Part::application) > 3) someoneGoes(world, Part::application);
}

void appStarts(World& world) {
  if (world.cast.count(Part::application) >= 10) return;
  const Pid pid = world.cast.startApp(world.random.pick(kAppKinds), world.ticks());
  world.tell(fmt::format("{} starts ({})", pid, world.laptop.processes().find(pid)->path));
}

void appStartsHelper(World& world) {
  const Pid parent = world.cast.any(Part::application);
  if (parent == 0 || world.cast.count(Part::helper) >= 8) return;
  std::string path = world.laptop.processes().find(parent)->path;
  path = path.substr(0, path.rfind("/MacOS/")) + "/Frameworks/Helper.app/Contents/MacOS/Helper";
  const Pid helper = world.cast.start(
      Part::helper, {.parent = parent, .path = path, .watts = world.random.real(0, 0.5)}, world.ticks());
  world.tell(fmt::format("{} starts {}", parent, helper));
}

void appBecomesAnother(World& world) {
  const Pid pid = world.cast.any(world.random.chance(0.5) ? Part::helper : Part::application);
  if (pid == 0 || world.laptop.processes().stopped(pid)) return;
  const AppKind& next = world.random.pick(kAppKinds);
  world.tell(fmt::format("{} turns into {}", pid, next.name));
  const std::string path = std::string(next.path) + "/Contents/MacOS/" + next.name;
  world.laptop.processes().exec(pid, path, {path});
}

void appChangesItsDraw(World& world) {
  const Pid pid = world.cast.any(Part::application);
  const double watts = world.random.real(0, 2);
  if (pid != 0) world.laptop.processes().setRates(pid, watts, watts / 4);
}

void shellComes(World& world) {
  const Pid terminal = world.cast.any(Part::application);
  if (terminal == 0 || world.cast.count(Part::shell) >= 4) return;
  const Pid shell = world.cast.start(Part::shell, {.parent = terminal, .path = "/bin/zsh"}, world.ticks());
  world.tell(fmt::format("{} starts shell {}", terminal, shell));
}

void shellBecomesAgent(World& world) {
  const Pid pid = world.cast.any(Part::shell);
  if (pid == 0 || world.cast.count(Part::agent) >= 3 || world.laptop.processes().stopped(pid)) return;
  world.tell(fmt::format("shell {} turns into an agent", pid));
  world.laptop.processes().exec(pid, "/usr/local/bin/claude", {"claude"});
  for (Actor& actor : world.cast.all()) {
    if (actor.pid != pid) continue;
    actor.part = Part::agent;
    actor.agentSince = world.ticks();
    world.cast.setBusy(actor, true);
  }
}

// Who had the number is gone, and somebody else has it: a program that its person has stopped, which must stay so.
void pidIsReused(World& world) {
  std::vector<Pid> touched, others;
  for (const Actor& actor : world.cast.all()) {
    const auto& processes = world.laptop.processes();
    if (actor.part == Part::shell || actor.part == Part::agent) continue;
    (processes.stopped(actor.pid) || processes.background(actor.pid) ? touched : others).push_back(actor.pid);
  }
  const auto& from = touched.empty() || world.random.chance(0.3) ? others : touched;
  if (from.empty() || world.cast.count(Part::stranger) >= 6) return;
  const Pid pid = world.random.pick(from);
  ++world.counts.pidsReused;
  world.tell(fmt::format("{} belongs to a stranger now", pid));
  world.cast.exit(pid);
  world.cast.start(Part::stranger, {.pid = pid, .path = "/usr/bin/less", .stopped = true}, world.ticks());
}

void strangerGoes(World& world) { someoneGoes(world, Part::stranger); }

void simulatorBoots(World& world) {
  if (world.cast.count(Part::simulator) >= 4) return;
  const std::string folder = "/Library/Developer/CoreSimulator/Volumes/iOS/";
  const Pid root = world.cast.start(Part::simulator, {.path = folder + "launchd_sim"}, world.ticks());
  world.cast.start(Part::simulator, {.parent = root, .path = folder + "SpringBoard", .watts = 0.3}, world.ticks());
  world.tell(fmt::format("simulator {} boots", root));
}

void requestsChange(World& world) {
  const Pid pid = world.cast.any(Part::application);
  const bool audio = world.random.chance(0.4), more = world.random.chance(0.5);
  const bool dated = world.random.chance(0.7);
  const double age = world.random.real(0, 5 * 3600);
  world.tell(more ? fmt::format("{} asks the laptop to {}", pid, audio ? "play" : "stay awake") : "requests end");
  world.laptop.edit([&](LaptopReport& report) {
    if (!more || report.assertions.size() >= 3) return report.assertions.clear();
    AssertionRecord record;
    record.pid = pid == 0 ? 1 : pid;
    record.processName = "Exporter";
    record.trueType = "PreventUserIdleSystemSleep";
    record.name = audio ? "music is playing" : "exporting";
    if (audio) record.resourcesUsed = {"audio-out BuiltIn"};
    if (dated) record.startedAt = world.laptop.now() + -age;
    report.assertions.push_back(std::move(record));
  });
}

// The laptop.

void lidFlutters(World& world) {
  world.moveLid(world.laptop.report().lid == LaptopLid::open);
  if (world.random.chance(0.5)) world.pass(world.random.real(0, 1));
  world.moveLid(world.laptop.report().lid == LaptopLid::open);
}

void chargerComesOrGoes(World& world) {
  world.charger = !world.charger;
  world.weakCharger = world.charger && world.random.chance(0.2);
  world.tell(!world.charger ? "the charger goes" : world.weakCharger ? "a weak charger comes" : "the charger comes");
  world.setBattery();
  // The system turns its switch back on by itself then, or sometimes doesn't.
  if (world.random.chance(0.7)) {
    world.laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });
  }
}

void batteryIsAlmostEmpty(World& world) {
  if (world.charger) return;
  world.charge = world.random.real(8, 25);
  world.setBattery();
}

void heatChanges(World& world) {
  const auto next = static_cast<ThermalState>(std::max(0, world.random.whole(-4, 3)));
  world.tell(fmt::format("heat is {}", static_cast<int>(next)));
  world.laptop.edit([&](LaptopReport& report) { report.thermal = next; });
}

void gaugeBreaks(World& world) {
  world.gaugeBroken = world.faulty && !world.gaugeBroken;
  world.setBattery();
}

void screenComesOrGoes(World& world) {
  const bool other = world.laptop.report().displays.size() < 2;
  world.tell(other ? "another screen comes" : "the other screen goes");
  world.laptop.edit([&](LaptopReport& report) {
    report.displays = {Display{1, true}};
    if (other) report.displays.push_back(Display{2, false});
  });
}

void sessionLocksOrUnlocks(World& world) {
  world.laptop.edit([](LaptopReport& report) { report.locked = !report.locked; });
}

// What the person turns by hand, while nothing of it is in somebody else's hands.
void personTurnsSwitches(World& world) {
  for (const char* record : {"powermode-restore", "timemachine-restore", "brightness-restore", "display-off"}) {
    if (world.state.exists(record)) return;
  }
  if (world.lidClosed() || world.faulty) return;
  world.powerMode = world.random.chance(0.2) ? 1 : 0;
  world.autoBackup = world.random.chance(0.7);
  world.brightness = world.random.whole(3, 10) / 10.0;
  world.laptop.setSwitches([&](LaptopSwitches& switches) {
    switches.batteryMode["lowpowermode"] = world.powerMode;
    switches.autoBackup = world.autoBackup;
    switches.displays[1].brightness = world.brightness;
  });
}

void clockIsSet(World& world) {
  const double size = world.random.chance(0.5) ? world.random.real(2, 300) : world.random.real(300, 20000);
  world.stepClock(world.random.chance(0.5) ? size : -size);
}

void timersRunLate(World& world) {
  world.laptop.queue().setLateness(world.random.chance(0.5) ? 0 : world.random.real(0, 1));
  world.laptop.queue().setLeafDelay(Seconds{world.random.chance(0.5) ? 0 : world.random.real(0, 5)});
}

void watchdogIsUnloaded(World& world) {
  if (!world.installed || !world.laptop.switches().watchdogLoaded) return;
  world.tell("somebody unloads the watchdog");
  world.laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = false; });
  ++world.unloads;
  world.unloadedAt = world.ticks();
}

// While nobody runs, somebody leaves a journal that names who must not be signalled.
void journalOfAStrangerAppears(World& world) {
  if (world.app || world.state.exists("touched.json") || world.cast.all().empty()) return;
  const Actor& actor = world.random.pick(world.cast.all());
  const MemoryProcess* process = world.laptop.processes().find(actor.pid);
  if (process == nullptr) return;
  const Pid self = world.laptop.processes().self();
  const std::string own = world.laptop.surroundings().executable;
  const auto entry = [](Pid pid, Microseconds start, const std::string& path) {
    return fmt::format(R"({{"pid":{},"start":{},"path":"{}","paused":true}})", pid, start, path);
  };
  world.tell(fmt::format("a journal appears that names 1, {} and {}", self, actor.pid));
  world.laptop.files().put(
      world.state.path("touched.json"),
      fmt::format("[{},{},{},{}]", entry(1, 0, "/sbin/launchd"), entry(self, 0, own),
                  entry(actor.pid, actor.start + 1, process->path), entry(actor.pid, actor.start, "/Another")));
  world.disturbed = world.ticks();
  world.laptop.files().put(world.state.path("paused"), fmt::format("1\t/sbin/launchd\n{}\t{}\n", self, own));
}

void powerGoes(World& world) { world.losePower(); }
void appHangs(World& world) { world.hangApp(world.random.real(5, world.random.chance(0.5) ? 100 : 2000)); }
void appIsKilled(World& world) { world.killApp(); }
void somethingWillDie(World& world) { world.orderCrash(world.inForce() ? 60 : 20); }

void personSendsItToSleep(World& world) {
  if (world.laptop.switches().sleepDisabled) return;
  world.laptop.setSwitches([](LaptopSwitches& switches) { switches.asleep = true; });
}

struct Event {
  double perHour;  // of being awake
  void (*happens)(World&);
};

constexpr Event kEvents[] = {
    {2, agentComes},
    {12, agentChangesPace},
    {2, agentWritesItsTranscript},
    {12, agentRunsTool},
    {2, agentGoes},
    {12, toolEnds},
    {3, helperEnds},
    {0.4, simulatorEnds},
    {3, appEnds},
    {4, appStarts},
    {4, appStartsHelper},
    {1, appBecomesAnother},
    {8, appChangesItsDraw},
    {1, shellComes},
    {0.3, shellBecomesAgent},
    {4, pidIsReused},
    {4, strangerGoes},
    {0.3, simulatorBoots},
    {2, requestsChange},
    {1, lidFlutters},
    {0.8, chargerComesOrGoes},
    {0.1, batteryIsAlmostEmpty},
    {1.5, heatChanges},
    {0.5, gaugeBreaks},
    {0.4, screenComesOrGoes},
    {0.3, sessionLocksOrUnlocks},
    {0.6, personTurnsSwitches},
    {0.3, clockIsSet},
    {0.6, timersRunLate},
    {0.05, watchdogIsUnloaded},
    {0.3, journalOfAStrangerAppears},
    {0.02, powerGoes},
    {0.1, appHangs},
    {0.2, appIsKilled},
    {0.5, somethingWillDie},
    {0.3, personSendsItToSleep},
    {18, requests::command},
    {4, requests::broadcast},
    {2, requests::commandLine},
    {3, requests::agentTool},
    {5, requests::phone},
    {3, requests::handEdit},
    {2, requests::ownWindows},
    {0.5, requests::relayTrouble},
    {0.15, requests::quit},
    {0.1, requests::setUp},
};

}  // namespace

void happen(World& world) {
  static const double total = [] {
    double sum = 0;
    for (const Event& event : kEvents) sum += event.perHour;
    return sum;
  }();
  double at = world.random.real(0, 3600 / World::kTick);
  if (at >= total) return;
  for (const Event& event : kEvents) {
    if ((at -= event.perHour) < 0) return event.happens(world);
  }
}

}  // namespace tovi::soak
