#include "soak/World.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "safety/Journal.h"
#include "safety/Setup.h"
#include "safety/Watchdog.h"
#include "soak/Events.h"

namespace tovi::soak {

namespace {

// 32 bytes: 0, 7, 14 and so on.
constexpr const char* kPhoneKey = "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk";
constexpr const char* kPairing =
    R"({"enabled": true, "key": "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk", "server": "https://relay.example", "panelUrl": ""})";

constexpr std::int64_t kInPeace = 60;   // ticks without a fault, after which all has been mended
constexpr double kWatchdogPeriod = 60;  // seconds, as the launch agent has it
constexpr double kBeatIsFresh = 40;     // seconds, as its script has it
constexpr int kFallsAsleep = 5;         // ticks with the lid shut until the system sleeps
constexpr double kDrainPerHour = 12;    // percent
constexpr double kChargePerHour = 40;

constexpr const char* kRefusals[] = {"pmset -a disablesleep 0",
                                     "pmset -a disablesleep 1",
                                     "pmset -b",
                                     "tmutil",
                                     "tmutil enable",
                                     "display 1",
                                     "brightness",
                                     "pmset",
                                     "launchctl",
                                     "display-assertion"};

}  // namespace

std::span<const Counts::Row> Counts::rows() {
  static constexpr Row kRows[] = {
      {"ticks", &Counts::ticks, 5000},
      {"events", &Counts::events, 300},
      {"operations", &Counts::operations, 5000},
      {"sessions with the lid shut", &Counts::closedSessions, 3},
      {"processes paused", &Counts::paused, 10},
      {"processes slowed", &Counts::slowed, 60},
      {"numbers used again", &Counts::pidsReused, 10},
      {"holds", &Counts::holds, 8},
      {"messages of the phone", &Counts::phone, 12},
      {"sleeps", &Counts::sleeps, 3},
      {"dark wakes", &Counts::darkWakes, 2},
      {"stretches of faults", &Counts::faultPhases, 3},
      {"refusals", &Counts::refused, 8},
      {"deaths of the application", &Counts::deaths, 6},
      {"of these with something in force", &Counts::deathsInForce, 4},
      {"deaths of other processes", &Counts::helperDeaths, 0.3},
      {"losses of power", &Counts::powerLosses, 0.1},
      {"rescues by the watchdog", &Counts::watchdogRestored, 3},
  };
  static_assert(sizeof(Counts) == std::size(kRows) * sizeof(std::int64_t));
  return kRows;
}

void Counts::add(const Counts& other) {
  for (const Row& row : rows()) this->*row.field += other.*row.field;
}

World::World(std::uint64_t seed, Look autopsy, Look farewell)
    : random(seed),
      laptop({.pid = Cast::kFirst - 1}),
      key(*RemoteCrypto::b64decode(kPhoneKey)),
      topics(RemoteCrypto::topics(key)),
      autopsy_(std::move(autopsy)),
      farewell_(std::move(farewell)) {
  // A person has set it up and paired a phone, some time ago: all of it is on the disk for good.
  (void)Setup(laptop.machine(), state).run();
  for (const std::string& path : {state.path("watchdog.sh"), Setup(laptop.machine(), state).watchdogPlistPath()}) {
    laptop.files().put(path, laptop.files().read(path).value_or(""), 0755);
  }
  laptop.files().put(state.path("remote.json"), kPairing, 0600);
  laptop.defaults().set("launchedBefore", true);
  laptop.defaults().set("onboardingDone", true);
  laptop.edit([&](LaptopReport& report) {
    for (const AppKind& kind : kAppKinds) {
      report.applications.push_back(
          {.pid = 0, .name = kind.name, .bundleIdentifier = kind.bundle, .path = kind.path, .regular = true});
    }
  });
  charge = random.real(30, 100);
  setBattery();
  startWorkOnce();
  lidMoves_ = random.real(60, 3600);
  phaseEnds = random.whole(200, 1500);
  laptop.faults().afterEach = [this] { lookWithin(); };
  startApp();
}

World::~World() {
  laptop.faults().forgetOrders();
  laptop.faults().afterEach = nullptr;
  app.reset();
}

double World::elapsed() { return laptop.clock().awake() + slept_; }

void World::tell(std::string what) {
  ++counts.events;
  story.tell(ticks_, laptop.faults().operations(), std::move(what));
}

void World::startWorkOnce() {
  for (const char* daemon : {"/usr/libexec/logd", "/usr/sbin/cfprefsd", "/System/Library/CoreServices/Dock.app/Dock"}) {
    cast.start(Part::daemon, {.path = daemon, .watts = 0.01}, ticks_);
  }
  const Pid terminal = cast.startApp(kAppKinds[random.whole(0, 1)], ticks_);
  cast.start(Part::shell, {.parent = terminal, .path = "/bin/zsh"}, ticks_);
  for (int i = 0; i < 4; ++i) cast.startApp(random.pick(kAppKinds), ticks_);
}

bool World::lidClosed() {
  const LaptopReport& report = laptop.report();
  return report.lid == LaptopLid::closed &&
         std::ranges::none_of(report.displays, [](const auto& display) { return !display.builtIn; });
}

// As if the process had died at this very operation.
void World::lookWithin() {
  if (wrongWithin) return;
  if (laptop.switches().sleepDisabled && !state.exists("hold")) wrongWithin = "sleep was off without a marker";
  const auto& effects = laptop.processes().effects();
  if (effects.size() <= std::exchange(effectsSeen_, effects.size())) return;
  const ProcessEffect& last = effects.back();
  const bool pauses = last.kind == ProcessEffect::Kind::pause;
  if (!pauses && last.kind != ProcessEffect::Kind::background) return;
  const auto journal = Journal::load(state);
  const bool named = std::ranges::any_of(journal, [&](const Touched& entry) {
    return entry.pid == last.pid && entry.start == last.start && entry.paused == pauses;
  });
  if (!named) wrongWithin = fmt::format("{} was touched before the journal named it", last.pid);
}

bool World::inForce() {
  return laptop.switches().sleepDisabled || state.exists("hold") || state.exists("touched.json");
}

// What dies in the application's own process takes the application with it.
void World::inApp(const std::function<void()>& what) {
  try {
    what();
  } catch (const Crash&) {
    died("the application");
  }
}

void World::aside(const std::function<void()>& what) {
  try {
    what();
  } catch (const Crash& crash) {
    tell(fmt::format("another process dies at operation {}", crash.operation));
    ++counts.helperDeaths;
    disturbed = ticks_;
    autopsy_(*this);
    laptop.faults().revive();
    laptop.machine().displays.cancelConfiguration();
  }
}

void World::pass(double seconds) {
  const double end = laptop.clock().awake() + seconds;
  bool reached = false;
  inApp([&] {
    const Registration mark = laptop.queue().after(Seconds{seconds}, [&] { reached = true; });
    laptop.advance(Seconds{seconds});
  });
  if (!reached && app) leaveApp();  // its main queue was stopped
  if (laptop.clock().awake() < end) laptop.clock().moveTo(end);
}

void World::startApp() {
  tell("the application starts");
  appStarts.reset();
  disturbed = startedAt = ticks_;
  waived = false;
  loosened.reset();
  unloads = laptop.switches().watchdogLoaded ? 0 : 1;
  unloadedAt = ticks_;
  calmSinceStart = !faulty;
  startedSince = elapsed();
  if (std::exchange(powerWasLost_, false)) clockBehindHolds += clockBehindBeat;
  inApp([&] {
    app = std::make_unique<AppDelegate>(laptop.machine(), nullptr);
    app->didFinishLaunching(false);
    laptop.settle();
  });
  if (app && !app->isPrimary()) leaveApp();  // it couldn't take its lock
}

void World::died(const char* who) {
  ++counts.deaths;
  if (inForce()) ++counts.deathsInForce;
  tell(fmt::format("{} dies", who));
  autopsy_(*this);
  app.reset();  // the dead do no harm
  afterLife();
}

void World::leaveApp() {
  tell("the application ends");
  const bool inPeace = settled(kInPeace) && app->isPrimary();
  try {
    app->willTerminate();
  } catch (const Crash&) {
    return died("the application that ends");
  }
  laptop.faults().forgetOrders();
  app.reset();
  if (inPeace) farewell_(*this);
  afterLife();
}

void World::afterLife() {
  laptop.restart(random.chance(0.1) ? laptop.processes().self() : cast.freePid());
  disturbed = ticks_;
  appStarts = elapsed() + (random.chance(0.4) ? random.real(0, 4) : random.real(10, 600));
}

void World::killApp() {
  if (!app) return;
  orderCrash(1);
  inApp([&] { laptop.files().create("/tmp/last", 0600); });
}

// It is stopped, or waits for something that doesn't come; then it goes on as if nothing had been.
void World::hangApp(double seconds) {
  if (!app) return;
  tell(fmt::format("the application hangs for {:.0f} s", seconds));
  for (double left = seconds; left > 0; left -= kWatchdogPeriod) {
    laptop.clock().moveTo(laptop.clock().awake() + std::min(left, kWatchdogPeriod));
    runWatchdog();
  }
  hung = disturbed = ticks_;
}

void World::losePower() {
  tell("the power goes");
  ++counts.powerLosses;
  if (random.chance(0.7)) {
    // Some time ago the system wrote out what it kept in memory.
    for (const char* file : {"config.json", "runtime.json", "stats.json", "remote-cursor"}) {
      if (const auto text = state.read(file)) laptop.files().put(state.path(file), *text);
    }
  }
  laptop.faults().crashAt(laptop.faults().operations() + 1, MemoryFaults::When::before);
  try {
    laptop.files().create("/tmp/last", 0600);
  } catch (const Crash&) {
  }
  autopsy_(*this);
  app.reset();
  cast.forgetAll();
  const double down = random.real(60, 7200);
  laptop.powerLoss(Seconds{down});
  // The record of it is written as well as can be: one whose synchronising failed may be an older one again.
  if (failedAt >= acceptedAt) accepted = {0, false};
  powerWasLost_ = true;
  slept_ += down;
  laptop.edit([](LaptopReport& report) { report.assertions.clear(); });
  laptop.setSwitches([](LaptopSwitches& switches) { switches.nextWake.reset(); });
  afterLife();
  startWorkOnce();
  charger = charger || charge < 5;
  setBattery();
}

void World::moveLid(bool closed) {
  tell(closed ? "the lid closes" : "the lid opens");
  lidMovedAt = ticks_;
  if (closed && engine() != nullptr && engine()->holding) ++counts.closedSessions;
  laptop.edit([&](LaptopReport& report) { report.lid = closed ? LaptopLid::closed : LaptopLid::open; });
  const double stay = random.chance(0.4)   ? random.real(4, 600)
                      : random.chance(0.7) ? random.real(600, 7200)
                                           : random.real(7200, closed ? 32000 : 10000);
  lidMoves_ = elapsed() + stay;
}

void World::stepClock(double seconds) {
  tell(fmt::format("the clock is set by {:.1f} s", seconds));
  laptop.stepClock(seconds);
  if (seconds < 0) clockBehindBeat -= seconds;
}

void World::orderCrash(int within) {
  laptop.faults().crashAt(laptop.faults().operations() + random.whole(1, within),
                          random.chance(0.5) ? MemoryFaults::When::before : MemoryFaults::When::after);
}

void World::setBattery() {
  laptop.edit([&](LaptopReport& report) {
    BatteryProperties battery = LaptopReport::ordinaryBattery();
    battery.currentCapacity = static_cast<std::int64_t>(charge);
    battery.maxCapacity = 100;
    battery.externalConnected = charger;
    battery.isCharging = charger && !weakCharger && charge < 100;
    battery.instantAmperage = charger && !weakCharger ? 1500 : -random.whole(200, 1500);
    report.battery = battery;
    if (!gaugeBroken) return;
    if (random.chance(0.3)) {
      report.battery.reset();
    } else if (random.chance(0.5)) {
      report.battery->maxCapacity = random.whole(-1, 0);
    } else {
      // Counters that started anew.
      const int low = random.whole(0, 1000);
      report.battery->powerTelemetry = BatteryProperties::Telemetry{random.real(0, 40000), low, random.whole(0, 3)};
    }
  });
}

void World::drain() {
  const double now = laptop.clock().awake();
  const double hours = (now - drainedUpTo_) / 3600;
  drainedUpTo_ = now;
  charge += charger && !weakCharger ? kChargePerHour * hours : -kDrainPerHour * hours;
  charge = std::clamp(charge, 0.0, 100.0);
  if (charge < 1 && !charger) {
    charger = true;
    losePower();
  }
  setBattery();
}

void World::runWatchdog() {
  if (!laptop.switches().watchdogLoaded || state.read("watchdog.sh").value_or("").empty()) return;
  if (const auto beat = laptop.files().status(state.path("alive"))) {
    if (secondsBetween(beat->modified, laptop.now()) < kBeatIsFresh) return;
  }
  const bool wasInForce = inForce();
  if (wasInForce && random.chance(0.1)) orderCrash(20);
  aside([&] {
    const std::string outcome = Watchdog::run(laptop.machine(), state, false);
    if (outcome == "alive") return;
    if (wasInForce) ++counts.watchdogRestored;
    tell("the watchdog: " + outcome);
  });
  if (!faulty) laptop.faults().forgetOrders();  // what wasn't reached isn't the application's
}

void World::wake(bool full) {
  laptop.setSwitches([](LaptopSwitches& switches) { switches.nextWake.reset(); });
  laptop.edit([&](LaptopReport& report) {
    ++report.events.poweredOn;
    if (full) ++report.events.didWake;
  });
  tell(full ? "the laptop wakes" : "the laptop wakes in the dark");
  awakeSince = elapsed();
  ++(full ? counts.sleeps : counts.darkWakes);
  // Who comes first, the watchdog or the application?
  if (random.chance(0.5)) runWatchdog();
  nextWatchdog_ = laptop.clock().awake() + random.real(1, kWatchdogPeriod);
  drowsy_ = 0;
}

void World::slumber() {
  if (!laptop.switches().asleep) {
    drowsy_ = lidClosed() && !laptop.switches().sleepDisabled ? drowsy_ + 1 : 0;
    if (drowsy_ < kFallsAsleep) return;
    laptop.setSwitches([](LaptopSwitches& switches) { switches.asleep = true; });
  }
  pass(1);  // for those who want to know before
  if (!laptop.switches().asleep) return;
  tell("the laptop sleeps");
  relay.cut(topics.cmd, false);  // no connection outlives a sleep
  const bool shut = laptop.report().lid == LaptopLid::closed;
  double span = shut ? std::max(1.0, lidMoves_ - elapsed()) : random.real(10, 3600);
  bool full = true;
  if (const auto planned = laptop.switches().nextWake) {
    const double until = *planned - unixSeconds(laptop.now());
    if (until < span) {
      span = std::max(until, 1.0);
      full = !shut;
    }
  }
  laptop.passAsleep(Seconds{span});
  slept_ += span;
  if (shut && full) moveLid(false);
  wake(full);
}

void World::changePhase() {
  if (ticks_ < phaseEnds) return;
  if (faulty) {
    stopFaults();
    phaseEnds = ticks_ + random.whole(300, 2500);
  } else {
    startFaults();
    phaseEnds = ticks_ + random.whole(60, 600);
  }
}

void World::startFaults() {
  ++counts.faultPhases;
  faulty = true;
  calmSinceStart = false;
  failing = random.chance(0.6);
  refusing = random.chance(0.5);
  filling = random.chance(0.3);
  crashing = random.chance(0.7);
  tell(fmt::format("faults begin:{}{}{}{}", failing ? " operations fail," : "", refusing ? " tools are refused," : "",
                   filling ? " the disk is full," : "", crashing ? " processes die" : ""));
}

void World::stopFaults() {
  tell("faults end");
  faulty = false;
  disturbed = ticks_;
  laptop.faults().forgetOrders();
  laptop.files().setFull(false);
  laptop.files().setReadOnly(state.dir(), false);
  relay.instead = nullptr;
  gaugeBroken = false;
  laptop.edit([&](LaptopReport& report) {
    report.refuse.clear();
    if (installed) report.privileged = true;
  });
  setBattery();
  // The person looks whether all is well.
  if (engine() != nullptr) inApp([&] { engine()->refreshFast(); });
}

void World::makeFaults() {
  if (failing) failedAt = ticks_;
  if (failing && app && random.chance(0.2)) {
    laptop.faults().failOperation(laptop.faults().operations() + random.whole(1, 15));
  }
  if (refusing && random.chance(0.02)) {
    std::vector<std::string> refused;
    for (int i = random.whole(0, 2); i > 0; --i) refused.emplace_back(random.pick(kRefusals));
    counts.refused += static_cast<std::int64_t>(refused.size());
    for (const std::string& command : refused) tell("refused from now on: " + command);
    const bool rule = !random.chance(0.1);
    laptop.edit([&](LaptopReport& report) {
      report.refuse = refused;
      if (installed) report.privileged = rule;
    });
  }
  if (filling && random.chance(0.02)) {
    const bool full = random.chance(0.5), readOnly = random.chance(0.2);
    tell(fmt::format("the disk is {}, its folder {}", full ? "full" : "roomy", readOnly ? "read-only" : "open"));
    laptop.files().setFull(full);
    laptop.files().setReadOnly(state.dir(), readOnly);
  }
  if (crashing && random.chance(inForce() ? 0.02 : 0.005)) orderCrash(40);
}

void World::tick() {
  ++ticks_;
  ++counts.ticks;
  const auto before = laptop.faults().operations();
  changePhase();
  if (faulty) makeFaults();
  happen(*this);
  if (elapsed() >= lidMoves_) moveLid(laptop.report().lid == LaptopLid::open);
  pass(kTick);
  if (const auto beat = laptop.files().status(state.path("alive")); app && beat && beat->modified <= laptop.now()) {
    clockBehindBeat = 0;
  }
  slumber();
  if (laptop.clock().awake() >= nextWatchdog_) {
    nextWatchdog_ = laptop.clock().awake() + kWatchdogPeriod;
    runWatchdog();
  }
  if (laptop.clock().awake() >= nextDrain_) {
    nextDrain_ = laptop.clock().awake() + 30;
    drain();
  }
  if (appStarts && elapsed() >= *appStarts) startApp();
  if (ticks_ % 512 == 0) {
    laptop.http().forget();
    laptop.forgetCommands();
    relay.subscriptions.clear();
  }
  counts.operations += laptop.faults().operations() - before;
}

}  // namespace tovi::soak
