#include "engine/Engine.h"

#include <algorithm>

#include "engine/Warnings.h"
#include "observe/DisplayPower.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/MainQueue.h"
#include "safety/Heartbeat.h"
#include "safety/Safety.h"
#include "safety/Watchdog.h"

namespace tovi {

namespace {

constexpr Seconds kTick{2.0};
constexpr Seconds kTickTolerance{1.0};
constexpr std::size_t kShownApps = 60;
constexpr double kUsualFullWh = 70.0;
constexpr double kLeastFullWh = 20.0;  // a learned capacity counts only above this

Config storedConfig(const StateFiles& state) {
  const auto text = state.read("config.json");
  return text ? Config::decode(*text).value_or(Config{}) : Config{};
}

}  // namespace

Engine::Engine(const Machine& machine, bool passive)
    : machine_(machine),
      state_(machine),
      previewOnly_(passive),
      bootTime_(machine.clock.bootTime()),
      watcher_(machine_),
      sampler_(machine_),
      configWatcher_(machine_.files, machine_.fileEvents, state_, [this] { configFileChanged(); }),
      delayed_(machine_.queue),
      alive_(std::make_shared<const bool>(true)) {
  readStored();
  if (passive) {
    sampler_.sample();
    sampleWatchers();
    evaluate();
    return;
  }
  if (const auto name = Config::setAsideIfBroken(state_, machine_.clock)) {
    pendingNotes.emplace_back("Settings file couldn't be read",
                              "Tovi is using its defaults. Your file was kept as " + *name + ".");
    state_.writeAtomically(config->encoded(), Config::path(state_));
  }
  if (!state_.exists("config.json")) state_.writeAtomically(config->encoded(), Config::path(state_));
  enforceSafety();
  // Before anything is put back, so that a watchdog that starts meanwhile leaves it to us.
  Heartbeat::beat(machine_, state_);
  setup().refreshWatchdogScript();
  {
    // One that has begun already has to end before we begin, or it would undo what we do.
    const auto turn = Watchdog::turn(machine_, state_);
    recoverFromCrash();
  }
  sweepLeftovers();
  restoreRuntime();
  startWatching();
  sampler_.sample();
  sampleWatchers();
  evaluate();
  settleAdoptedHold();
  timer_ = machine_.queue.every(kTick, kTickTolerance, [this] { tick(); });
  observers_.push_back(machine_.power.onThermalChange([this] {
    thermal = machine_.power.thermalState();
    evaluate();
  }));
}

Engine::~Engine() = default;

void Engine::readStored() {
  config = storedConfig(state_);
  setupReady = setup().setupReady();
  lidClosed = Registry::lidClosed(machine_);
  battery = Battery::read(machine_);
  wakeReady = setup().wakeReady();
  thermal = machine_.power.thermalState();
  const auto learned = machine_.defaults.number("fullWh");
  fullWh = learned && *learned > kLeastFullWh ? *learned : kUsualFullWh;
  stats = SavingsStats::load(state_);
  openDraw = machine_.defaults.number("openDraw");
  closedDraw = machine_.defaults.number("closedDraw");
  powerEffects = machine_.defaults.numbers("powerEffects2").value_or(std::map<std::string, double>{});
  const auto unclear = machine_.defaults.strings("powerUnclear").value_or(std::vector<std::string>{});
  powerUnclear = std::set<std::string>(unclear.begin(), unclear.end());
}

void Engine::startWatching() {
  observers_.push_back(machine_.power.onWillSleep([this] { macWillSleep(); }));
  observers_.push_back(machine_.power.onDidWake([this] {
    Heartbeat::beat(machine_, state_);  // it grew old in the sleep
    snoozed = false;
    evaluate();
  }));
  observers_.push_back(machine_.power.onPoweredOn([this] { poweredOn(); }));
  configWatcher_.start();
  lidWatcher_ = machine_.power.onChange([this] {
    const bool closed = Registry::lidClosed(machine_);
    if (closed != lidClosed) lidChanged(closed);
  });
}

Date Engine::now() const { return machine_.clock.now(); }

void Engine::apply(Config next, bool save) {
  if (next == config) return;
  const Config old = config;
  if (next.mode != old.mode && next.mode != Mode::on) {
    next.alwaysUntil.reset();
    next.modeBeforeAlways.reset();
  }
  config = next;
  if (save && !previewOnly_) {
    state_.writeAtomically(config->encoded(), Config::path(state_));
    if (old.heatGuard != next.heatGuard || old.batteryFloor != next.batteryFloor) {
      Safety{next.heatGuard, next.batteryFloor}.save(state_);
    }
  }
  if (old.watchedApps != next.watchedApps || old.countRequests != next.countRequests ||
      old.customAgents != next.customAgents) {
    sampleWatchers();
  }
  const bool supervising = lidClosed && holding && !previewOnly_;
  if (old.screenOffNoLock != next.screenOffNoLock && supervising && !next.lockOnClose) {
    if (next.screenOffNoLock) {
      switchScreenOff();
    } else {
      DisplayPower::restoreBuiltIn(machine_, state_);
      screenOff = false;
    }
  }
  if ((old.preset != next.preset || old.appRules != next.appRules ||
       old.lowPowerWhileClosed != next.lowPowerWhileClosed || old.pauseSimulators != next.pauseSimulators ||
       old.pauseBackgroundAudio != next.pauseBackgroundAudio || old.shutDownSimulators != next.shutDownSimulators) &&
      supervising && !powerTestRunning) {
    reapplyClosedState(heatForced ? std::optional{Preset::longest} : std::nullopt);
  }
  evaluate();
}

void Engine::keepApps(std::vector<AppUsage> sampled) {
  if (sampled.size() > kShownApps) sampled.resize(kShownApps);
  apps = std::move(sampled);
}

void Engine::refreshFast() {
  readBattery();
  sampleWatchers();
  if (auto sampled = sampler_.sample(); !sampled.empty()) keepApps(std::move(sampled));
  if (previewOnly_) return;
  // Asking sudo starts a process, which must not hold up whoever asked for figures.
  machine_.queue.offMain(
      [machine = machine_, report = whileAlive([this](bool ready, bool wakes) { setupSeen(ready, wakes); })] {
        const StateFiles state(machine);
        const Setup setup(machine, state);
        return [report, ready = setup.setupReady(), wakes = setup.wakeReady()] { report(ready, wakes); };
      });
}

void Engine::sampleEnergyNow(std::function<void()> then) {
  const auto fresh = std::make_shared<EnergySampler>(machine_);
  fresh->sample();
  delayed_.after(Seconds{1.0}, [this, fresh, then = std::move(then)] {
    if (auto sampled = fresh->sample(); !sampled.empty()) keepApps(std::move(sampled));
    if (then) then();
  });
}

void Engine::shutdown() {
  if (previewOnly_) return;
  restoreClosedState();
  if (statsUnsaved_) saveStats();
  const bool sleepMayBeOff = holding || pendingRelease || adoptedHoldUntil || checkInUntil;
  if (!sleepMayBeOff || switchSleepOn()) {
    state_.remove(state_.path("hold"));
    pendingRelease = false;
    adoptedHoldUntil.reset();
    clearWarning(warnings::kReleasePending);
  }
  checkInUntil.reset();
  checkInActivity_.reset();
  activity_.reset();
  holding = false;
}

}  // namespace tovi
