// The power test as it is carried out: savings are switched off and on again with the lid closed, and each state is
// read over a whole update of the power controller. It is a chain of delayed calls; endPowerTest() is its one exit.

#include <algorithm>
#include <array>

#include "engine/Engine.h"
#include "engine/PowerTest.h"
#include "observe/DisplayPower.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"

namespace tovi {

namespace {

constexpr Seconds kPoll{1.0};

bool isProcessSaving(std::string_view key) {
  return std::ranges::find(PowerTest::kProcessSavings, key) != PowerTest::kProcessSavings.end();
}

}  // namespace

struct Engine::PowerTestRun {
  SavingStates was;   // how the closed lid has them
  SavingKeys detail;  // to be measured on their own
  std::array<double, PowerTest::kTotalSteps> readings{};
  std::size_t taken = 0;
  bool screenOffSetting = false;  // when it started

  // The lid can be opened and closed again between two looks at it.
  std::optional<std::string> interrupted;
  std::vector<Registration> watches;

  int steps() const { return PowerTest::stepCount(detail.size()); }
};

std::optional<std::string> Engine::startPowerTest(bool includeScreen, bool detailed) {
  if (!lidClosed || !holding || previewOnly_) {
    return "Close the lid first (with Tovi keeping the Mac awake): the test measures lid-closed savings";
  }
  if (powerTestRunning) return "A power test is already running";
  if (!powerCounted()) return "This Mac doesn't report whole-system power, so savings can't be measured";
  powerTestRunning = true;
  powerTestAborted = std::nullopt;
  const SavingKeys keys = PowerTest::keysFor({.includeScreen = includeScreen,
                                              .lockOnClose = config->lockOnClose,
                                              .screenOffNoLock = config->screenOffNoLock,
                                              .canSwitchScreen = DisplayPower::canSwitch(machine_),
                                              .passwordDelay = LockSetting::gracePeriod(machine_)});
  runTotalTest(keys, detailed ? keys : SavingKeys{});
  return std::nullopt;
}

bool Engine::powerCounted() const {
  const auto sample = PowerSensor::sample(machine_);
  return sample && sample->accumulated;
}

bool Engine::savingOn(std::string_view key) const { return PowerTest::savingOn(key, config, screenOff); }

void Engine::runTotalTest(const SavingKeys& keys, const SavingKeys& then) {
  powerTest_ = std::make_shared<PowerTestRun>();
  powerTest_->detail = then;
  powerTest_->screenOffSetting = config->screenOffNoLock;
  for (const std::string& key : keys) {
    if (key != "screen") powerTest_->was[key] = savingOn(key);
  }
  const auto interrupt = [this](const char* why) {
    if (powerTest_ && !powerTest_->interrupted) powerTest_->interrupted = why;
  };
  powerTest_->watches.push_back(lidClosed.observe([this, interrupt] {
    if (!lidClosed) interrupt(PowerTest::kLidOpened);
  }));
  powerTest_->watches.push_back(holding.observe([this, interrupt] {
    if (!holding) interrupt(PowerTest::kHoldEnded);
  }));
  measureTotalStep();
}

void Engine::measureTotalStep() {
  PowerTestRun& run = *powerTest_;
  powerTestProgress = PowerTest::totalProgress(static_cast<int>(run.taken) + 1, run.steps());
  SavingStates states = run.was;
  if (run.taken % 2 == 0) {
    for (auto& [key, on] : states) on = false;
  }
  setSavings(states);
  cleanReading([this](double watts) {
    PowerTestRun& now = *powerTest_;
    now.readings[now.taken++] = watts;
    if (now.taken < now.readings.size()) return measureTotalStep();
    setSavings(now.was);
    const PowerTest::Total total = PowerTest::totalOf(now.readings);
    powerEffects.update([&](std::map<std::string, double>& effects) {
      effects["closed_without"] = total.closedWithout;
      effects["closed_with"] = total.closedWith;
      effects.erase("total");
      if (total.saving) effects["total"] = *total.saving;
    });
    powerUnclear.update([&](std::set<std::string>& unclear) {
      unclear.erase("total");
      if (!total.saving) unclear.insert("total");
    });
    if (now.detail.empty()) {
      // Measured beside another total, they would be stale.
      for (const std::string_view key : PowerTest::kSavings) forgetSaving(std::string{key});
    }
    runDetailStep(0);
  });
}

void Engine::forgetSaving(const std::string& key) {
  powerEffects.update([&](std::map<std::string, double>& effects) { effects.erase(key); });
  powerUnclear.update([&](std::set<std::string>& unclear) { unclear.erase(key); });
}

void Engine::runDetailStep(std::size_t next) {
  const PowerTestRun& run = *powerTest_;
  if (next == run.detail.size()) return endPowerTest(std::nullopt);
  if (!canGoOnMeasuring()) return abortPowerTest();
  const std::string& key = run.detail[next];
  const BackgroundWork::Found& found = background;
  const bool nothingThere = (key == "simulators" && found.simulators.empty() && found.previews.empty()) ||
                            (key == "audio" && found.audio.empty());
  if (nothingThere) {
    forgetSaving(key);
    return runDetailStep(next + 1);
  }
  if (key == "screen") screenStepRan = true;
  measureDetail(next, false, [this, next](double off) {
    measureDetail(next, true, [this, next, off](double on) {
      const PowerTestRun& now = *powerTest_;
      setSavings(now.was);
      const std::string& measured = now.detail[next];
      powerEffects.update(
          [&](std::map<std::string, double>& effects) { effects[measured] = PowerTest::savingOf(off, on); });
      powerUnclear.update([&](std::set<std::string>& unclear) { unclear.erase(measured); });
      runDetailStep(next + 1);
    });
  });
}

void Engine::measureDetail(std::size_t at, bool on, std::function<void(double)> done) {
  const PowerTestRun& run = *powerTest_;
  const std::string& key = run.detail[at];
  const int step = PowerTest::stepCount(at) + (on ? 2 : 1);
  powerTestProgress = PowerTest::detailProgress(key, step, run.steps());
  SavingStates states = run.was;
  states[key] = on;
  setSavings(states);
  cleanReading(std::move(done));
}

void Engine::setSavings(const SavingStates& states) {
  Skip skip;
  bool processes = false;
  for (const auto& [key, on] : states) {
    if (!isProcessSaving(key)) continue;
    processes = true;
    if (!on) skip.insert(key);
  }
  if (processes) applyClosedTargets(heatForced ? Preset::longest : config->preset, skip);

  if (const auto low = states.find("low_power"); low != states.end()) {
    if (low->second) {
      setLowPower();
    } else {
      restorePowerMode();
    }
  }
  if (const auto off = states.find("screen_off"); off != states.end()) {
    if (off->second && !screenOff) {
      switchScreenOff();
    } else if (!off->second && screenOff) {
      DisplayPower::restoreBuiltIn(machine_, state_);
      screenOff = false;
      Brightness::dimForClosedLid(machine_, state_);
    }
  }
  if (const auto asleep = states.find("screen"); asleep != states.end()) {
    if (asleep->second) {
      shell().run("/usr/bin/pmset", {"displaysleepnow"});
    } else {
      shell().spawn("/usr/bin/caffeinate", {"-u", "-t", "2"});
    }
  }
}

bool Engine::canGoOnMeasuring() const { return lidClosed && holding && !powerTest_->interrupted; }

void Engine::cleanReading(std::function<void(double)> done) {
  pollReading(std::make_shared<PowerTest::Reading>(PowerSensor::sample(machine_)), std::move(done));
}

void Engine::pollReading(std::shared_ptr<PowerTest::Reading> reading, std::function<void(double)> done) {
  delayed_.after(kPoll, [this, reading = std::move(reading), done = std::move(done)] {
    if (!canGoOnMeasuring()) return abortPowerTest();
    const auto verdict = reading->take(PowerSensor::sample(machine_));
    if (!verdict.ended) return pollReading(reading, done);
    if (!verdict.watts) return abortPowerTest();
    done(*verdict.watts);
  });
}

void Engine::abortPowerTest() {
  std::string why = PowerTest::kNoReadings;
  if (!lidClosed) {
    why = PowerTest::kLidOpened;
  } else if (powerTest_->interrupted) {
    why = *powerTest_->interrupted;
  } else if (!holding) {
    why = PowerTest::kHoldEnded;
  }
  endPowerTest(std::move(why));
}

void Engine::endPowerTest(std::optional<std::string> aborted) {
  if (lidClosed && holding) {
    SavingStates states = powerTest_->was;
    std::erase_if(states, [](const auto& state) { return isProcessSaving(state.first); });
    if (screenStepRan) states["screen"] = false;
    // Changed while it ran, the setting is what the screen follows from now on.
    if (const auto off = states.find("screen_off");
        off != states.end() && config->screenOffNoLock != powerTest_->screenOffSetting) {
      off->second = config->screenOffNoLock && !config->lockOnClose;
    }
    setSavings(states);
  }
  screenStepRan = false;
  powerTest_.reset();
  powerTestRunning = false;
  powerTestProgress = std::nullopt;
  powerTestAborted = std::move(aborted);
  if (!powerTestAborted.get()) {
    machine_.defaults.set("powerEffects2", powerEffects.get());
    machine_.defaults.set("powerUnclear", std::vector<std::string>(powerUnclear->begin(), powerUnclear->end()));
  }
  if (lidClosed && holding) {
    reapplyClosedState(heatForced ? std::optional{Preset::longest} : std::nullopt);
  } else {
    restoreClosedState();
  }
}

}  // namespace tovi
