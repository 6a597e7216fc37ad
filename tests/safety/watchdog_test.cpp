#include "safety/Watchdog.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

#include "core/Shell.h"
#include "core/StateFiles.h"
#include "observe/DisplayPower.h"
#include "observe/SystemSwitches.h"
#include "platform/simulated/MemoryLaptop.h"
#include "safety/Heartbeat.h"
#include "safety/Journal.h"

namespace tovi {
namespace {

using Items = std::vector<std::string>;

constexpr char kSleepOff[] = "sleep is switched off (pmset disablesleep 1)";

// A laptop with a lid that is shut on some work.
struct Night {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  Pid mail = add("/Applications/Mail.app/Contents/MacOS/Mail");
  Pid build = add("/usr/bin/make");

  Pid add(const std::string& path) {
    MemoryProcess process;
    process.path = path;
    return laptop.processes().add(process);
  }

  // All that is ever switched, in the order of a lid that closes, each step recorded first.
  void close(bool screenOff = true) {
    const Machine& machine = laptop.machine();
    MemoryProcesses& processes = laptop.processes();
    state.touch(state.path("hold"));
    if (state.exists("hold")) Shell(machine.commands).pmsetRoot({"-a", "disablesleep", "1"});
    Brightness::dimForClosedLid(machine, state);
    if (screenOff) DisplayPower::turnOffBuiltIn(machine, state);
    PowerMode::setLow(machine, state);
    TimeMachine::pause(machine, state);
    const Touched entries[] = {{mail, *processes.startTime(mail), *processes.path(mail), true},
                               {build, *processes.startTime(build), *processes.path(build), false}};
    if (!Journal::save(machine, state, {entries[0], entries[1]})) return;
    processes.pause(mail, entries[0].start);
    processes.setBackgroundPriority(build, entries[1].start);
  }

  std::string clean(bool force = true) { return Watchdog::run(laptop.machine(), state, force); }
  Items outstanding() { return Watchdog::outstanding(laptop.machine(), state); }
  void put(const std::string& name, std::string_view content) { laptop.files().put(state.path(name), content); }

  // As if nothing had ever happened.
  void expectWhole(const std::string& when) {
    EXPECT_EQ(outstanding(), Items{}) << when;
    const LaptopSwitches& switches = laptop.switches();
    EXPECT_FALSE(switches.sleepDisabled) << when;
    EXPECT_EQ(switches.batteryMode.at("lowpowermode"), 0) << when;
    EXPECT_TRUE(switches.autoBackup) << when;
    EXPECT_TRUE(switches.display(1).enabled) << when;
    EXPECT_DOUBLE_EQ(switches.display(1).brightness, 0.8) << when;
    EXPECT_FALSE(laptop.processes().stopped(mail)) << when;
    EXPECT_FALSE(laptop.processes().background(build)) << when;
  }
};

std::int64_t operationsOf(const std::function<void(Night&)>& work) {
  Night night;
  const auto before = night.laptop.faults().operations();
  work(night);
  return night.laptop.faults().operations() - before;
}

// Runs `work` and kills the process at its nth operation; false if it didn't get that far.
bool killedAt(Night& night, std::int64_t nth, MemoryFaults::When when, const std::function<void(Night&)>& work) {
  night.laptop.faults().crashAt(night.laptop.faults().operations() + nth, when);
  try {
    work(night);
  } catch (const Crash&) {
    return true;
  }
  return false;
}

using When = MemoryFaults::When;

TEST(Watchdog, NothingStaysSwitchedWhereverTheApplicationDied) {
  const auto close = [](Night& night) { night.close(); };
  const auto operations = operationsOf(close);
  ASSERT_GT(operations, 20);
  for (std::int64_t nth = 1; nth <= operations; ++nth) {
    for (const When when : {When::before, When::after}) {
      for (const bool powerToo : {false, true}) {
        Night night;
        const std::string moment = fmt::format("operation {}, {}, {}", nth, when == When::before ? "before" : "after",
                                               powerToo ? "power lost" : "power kept");
        ASSERT_TRUE(killedAt(night, nth, when, close)) << moment;
        powerToo ? night.laptop.powerLoss() : night.laptop.restart();
        EXPECT_EQ(night.clean(false), "restored") << moment;
        night.expectWhole(moment);
      }
    }
  }
}

TEST(Watchdog, ItsOwnDeathIsMendedByTheNextRun) {
  const auto clean = [](Night& night) { night.clean(); };
  const auto operations = operationsOf([&](Night& night) {
                            night.close();
                            clean(night);
                          }) -
                          operationsOf([](Night& night) { night.close(); });
  ASSERT_GT(operations, 10);
  for (std::int64_t nth = 1; nth <= operations; ++nth) {
    for (const When when : {When::before, When::after}) {
      for (const bool powerToo : {false, true}) {
        Night night;
        night.close();
        ASSERT_TRUE(killedAt(night, nth, when, clean)) << nth;
        powerToo ? night.laptop.powerLoss() : night.laptop.restart();
        EXPECT_EQ(night.clean(), "restored") << nth;
        night.expectWhole(fmt::format("operation {}", nth));
      }
    }
  }
}

// Anything may be refused once: a full disk, a busy server. What then is switched must be recorded all the same.
TEST(Watchdog, NothingIsSwitchedWithoutARecordWhateverFails) {
  const auto close = [](Night& night) { night.close(/*screenOff=*/false); };
  const auto operations = operationsOf(close);
  for (std::int64_t nth = 1; nth <= operations; ++nth) {
    Night night;
    night.laptop.faults().failOperation(night.laptop.faults().operations() + nth);
    close(night);
    EXPECT_EQ(night.clean(), "restored") << nth;
    night.expectWhole(fmt::format("operation {}", nth));
  }
}

TEST(Watchdog, WhatItCouldNotPutBackStaysRecordedForTheNextRun) {
  const std::pair<const char*, Items> cases[] = {
      {"display 1 on", {"screen dimmed to zero", "built-in screen switched off"}},
      {"brightness 1", {"screen dimmed to zero"}},
      {"pmset -b", {"Low Power Mode changed"}},
      {"pmset -a", {kSleepOff}},
      {"tmutil", {"Time Machine automatic backups paused"}},
  };
  for (const auto& [refused, left] : cases) {
    Night night;
    night.close();
    night.laptop.edit([command = std::string{refused}](LaptopReport& report) { report.refuse = {command}; });
    EXPECT_EQ(night.clean(), "partly restored") << refused;
    EXPECT_EQ(night.outstanding(), left) << refused;
    night.laptop.edit([](LaptopReport& report) { report.refuse.clear(); });
    EXPECT_EQ(night.clean(), "restored") << refused;
    night.expectWhole(refused);
  }
}

TEST(Watchdog, ListsAllThatIsInForceInItsOrder) {
  Night night;
  EXPECT_EQ(night.outstanding(), Items{});
  night.close();
  EXPECT_EQ(night.outstanding(),
            (Items{fmt::format("paused Mail (pid {})", night.mail), fmt::format("slowed make (pid {})", night.build),
                   kSleepOff, "Low Power Mode changed", "Time Machine automatic backups paused",
                   "screen dimmed to zero", "built-in screen switched off"}));
}

TEST(Watchdog, KeepsOffWhileTheApplicationLives) {
  Night night;
  night.close();
  Heartbeat::beat(night.laptop.machine(), night.state);
  EXPECT_EQ(night.clean(false), "alive");
  EXPECT_TRUE(night.laptop.processes().stopped(night.mail));
  EXPECT_EQ(night.clean(true), "restored") << "unless a person asks for it";
  night.expectWhole("forced");
}

TEST(Watchdog, ASleepSwitchIsOnlyOursWithTheMarker) {
  Night night;
  night.laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
  EXPECT_EQ(night.clean(), "restored");
  EXPECT_TRUE(night.laptop.switches().sleepDisabled);
  EXPECT_EQ(night.outstanding(), Items{kSleepOff});

  night.laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = false; });
  night.put("hold", "");
  EXPECT_EQ(night.outstanding(), Items{"hold marker present"});
  EXPECT_EQ(night.clean(), "restored");
  EXPECT_FALSE(night.state.exists("hold"));
  EXPECT_TRUE(night.laptop.commands().empty());
}

TEST(Watchdog, UndoesARecordOfTheOlderFormToo) {
  Night night;
  night.laptop.processes().pause(night.mail, *night.laptop.processes().startTime(night.mail));
  night.put("paused", fmt::format("{}\t/Applications/Mail.app/Contents/MacOS/Mail\n", night.mail));
  EXPECT_EQ(night.clean(), "restored");
  night.expectWhole("older form");
}

// It is the person's own to end: a run leaves it, and whoever asks is told, among the rest in its order.
TEST(Watchdog, ApprovalSwitchIsToldButNeverTouched) {
  Night night;
  night.put("auto-approve.json", "{}");
  EXPECT_EQ(night.clean(), "restored");
  EXPECT_TRUE(night.state.exists("auto-approve.json"));
  night.put("powermode-restore", "lowpowermode 0");
  night.put("brightness-restore", "1 0.8");
  EXPECT_EQ(night.outstanding(),
            (Items{"Low Power Mode changed",
                   "Approve everything is on: Claude Code and Codex run without asking (turn off in Settings › AI)",
                   "screen dimmed to zero"}));
}

TEST(Watchdog, GarbledRecordsHoldNothingUp) {
  Night night;
  night.close();
  night.put("touched.json", R"([{"pid":)");
  night.put("powermode-restore", "lowpowermode");
  night.laptop.forgetCommands();
  EXPECT_EQ(night.clean(), "restored");
  EXPECT_EQ(night.outstanding(), Items{});
  for (const auto& command : night.laptop.commands()) {
    EXPECT_EQ(command.line().find("-b"), std::string::npos) << command.line();
  }
}

}  // namespace
}  // namespace tovi
