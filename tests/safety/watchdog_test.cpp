#include "safety/Watchdog.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>

#include "core/Deaths.h"
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

  Pid add(const std::string& path) { return laptop.processes().add({.path = path}); }

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
  void expectWhole() {
    EXPECT_EQ(outstanding(), Items{});
    const LaptopSwitches& switches = laptop.switches();
    EXPECT_FALSE(switches.sleepDisabled);
    EXPECT_EQ(switches.batteryMode.at("lowpowermode"), 0);
    EXPECT_TRUE(switches.autoBackup);
    EXPECT_TRUE(switches.display(1).enabled);
    EXPECT_DOUBLE_EQ(switches.display(1).brightness, 0.8);
    EXPECT_FALSE(laptop.processes().stopped(mail) || laptop.processes().background(build));
  }
};

TEST(Watchdog, NothingStaysSwitchedWhereverTheApplicationOrItselfDied) {
  const auto open = [] { return std::make_unique<Night>(); };
  const auto shut = [] {
    auto night = std::make_unique<Night>();
    night->close();
    return night;
  };
  for (const bool powerLost : {false, true}) {
    for (const bool force : {false, true}) {
      const auto mend = [&](Night& night) {
        EXPECT_EQ(night.clean(force), "restored");
        night.expectWhole();
      };
      atEveryDeath(
          powerLost, open, [](Night& night) { night.close(); }, mend);
      atEveryDeath(
          powerLost, shut, [](Night& night) { night.clean(); }, mend);
    }
  }
}

// Anything may be refused once: a full disk, a busy server. What then is switched must be recorded all the same.
TEST(Watchdog, NothingIsSwitchedWithoutARecordWhateverFails) {
  bool failed = true;
  for (std::int64_t step = 1; failed; ++step) {
    SCOPED_TRACE(step);
    Night night;
    MemoryFaults& faults = night.laptop.faults();
    const std::int64_t number = faults.operations() + step;
    faults.failOperation(number);
    night.close(/*screenOff=*/false);
    failed = faults.operations() >= number;
    faults.forgetOrders();
    EXPECT_EQ(night.clean(), "restored");
    night.expectWhole();
    EXPECT_TRUE(failed || step > 20) << "it made hardly a change";
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
    SCOPED_TRACE(refused);
    Night night;
    night.close();
    night.laptop.edit([command = std::string{refused}](LaptopReport& report) { report.refuse = {command}; });
    EXPECT_EQ(night.clean(), "partly restored");
    EXPECT_EQ(night.outstanding(), left);
    night.laptop.edit([](LaptopReport& report) { report.refuse.clear(); });
    EXPECT_EQ(night.clean(), "restored");
    night.expectWhole();
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
  night.expectWhole();
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

TEST(Watchdog, GarbledRecordsHoldNothingUpAndOnesOfAnOlderFormCount) {
  Night night;
  night.close();
  night.put("touched.json", R"([{"pid":)");
  night.put("paused", fmt::format("{}\t/Applications/Mail.app/Contents/MacOS/Mail\n", night.mail));
  night.put("powermode-restore", "lowpowermode");
  night.laptop.forgetCommands();
  EXPECT_EQ(night.clean(), "restored");
  EXPECT_EQ(night.outstanding(), Items{});
  EXPECT_FALSE(night.laptop.processes().stopped(night.mail));
  for (const auto& command : night.laptop.commands()) {
    EXPECT_EQ(command.line().find("-b"), std::string::npos) << command.line();
  }
}

}  // namespace
}  // namespace tovi
