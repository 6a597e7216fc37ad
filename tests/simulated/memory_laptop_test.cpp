#include "platform/simulated/MemoryLaptop.h"

#include <gtest/gtest.h>

#include <chrono>

namespace tovi {
namespace {

TEST(MemoryLaptop, EachEventIsRaisedOnceOnATurnOfItsOwn) {
  MemoryLaptop laptop;
  std::string heard;
  PowerRegistry& power = laptop.machine().power;
  const Registration all[] = {
      power.onChange([&] { heard += "change "; }),       power.onThermalChange([&] { heard += "thermal "; }),
      power.onWillSleep([&] { heard += "willSleep "; }), power.onPoweredOn([&] { heard += "poweredOn "; }),
      power.onDidWake([&] { heard += "didWake "; }),
  };
  const struct {
    std::function<void(LaptopReport&)> edit;
    const char* heard;
  } cases[] = {
      {[](LaptopReport& r) { r.lid = LaptopLid::closed; }, "change "},
      {[](LaptopReport& r) { r.thermal = ThermalState::critical; }, "thermal "},
      {[](LaptopReport& r) { r.events.willSleep += 2; }, "willSleep "},
      {[](LaptopReport& r) { r.events.poweredOn = 1; }, "poweredOn "},
      {[](LaptopReport& r) {
         r.events = {2, 2, 1};
         r.lid = LaptopLid::open;
       },
       "change poweredOn didWake "},
      {[](LaptopReport& r) { r.events = {}; }, ""},                 // counters that shrink say nothing
      {[](LaptopReport& r) { r.events.didWake = 1; }, "didWake "},  // and start anew from there
      {[](LaptopReport& r) { r.battery.reset(); }, ""},
  };
  for (const auto& [edit, expected] : cases) {
    heard.clear();
    laptop.edit(edit);
    EXPECT_EQ(heard, "");
    laptop.settle();
    EXPECT_EQ(heard, expected);
  }
}

TEST(MemoryLaptop, AWakeEndsSleepAndALidLightsTheScreen) {
  MemoryLaptop laptop;
  const auto asleep = [&] {
    laptop.setSwitches([](LaptopSwitches& switches) { switches.asleep = switches.displayAsleep = true; });
  };
  asleep();
  laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::closed; });
  EXPECT_TRUE(laptop.switches().asleep && laptop.switches().displayAsleep);
  laptop.edit([](LaptopReport& report) { report.events.poweredOn++; });
  EXPECT_FALSE(laptop.switches().asleep || laptop.switches().displayAsleep);
  asleep();
  laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::open; });
  EXPECT_TRUE(laptop.switches().asleep);
  EXPECT_FALSE(laptop.switches().displayAsleep);
  laptop.edit([](LaptopReport& report) { report.events.didWake++; });
  EXPECT_FALSE(laptop.switches().asleep);
}

TEST(MemoryLaptop, AnOrderedFailureHitsExactlyOneOperation) {
  MemoryLaptop laptop;
  Files& files = laptop.machine().files;
  laptop.faults().failOperation(2);
  EXPECT_TRUE(files.create("/tmp/a", std::nullopt));
  EXPECT_FALSE(files.write("/tmp/a", "x", Files::Sync::no));
  EXPECT_EQ(files.read("/tmp/a"), "");
  EXPECT_TRUE(files.write("/tmp/a", "x", Files::Sync::no));
  laptop.faults().failNext();
  EXPECT_EQ(laptop.machine().commands.run("/usr/bin/pmset", {"displaysleepnow"}).code, 1);
  EXPECT_FALSE(laptop.switches().displayAsleep);
  EXPECT_EQ(laptop.faults().log(), (std::vector<std::string>{"create /tmp/a", "write /tmp/a", "write /tmp/a",
                                                             "laptop pmset displaysleepnow"}));
  EXPECT_EQ(laptop.faults().log(4).size(), 1u);
}

TEST(MemoryLaptop, EveryKindOfChangeIsAnOperation) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  MemoryProcess process;
  process.path = "/bin/a";
  const Pid pid = laptop.processes().add(process);
  const Microseconds start = laptop.processes().startTime(pid).value();
  laptop.files().put("/tmp/there", "x");
  const std::function<void()> changes[] = {
      [&] { (void)machine.files.create("/tmp/new", 0600); },
      [&] { (void)machine.files.write("/tmp/there", "y", Files::Sync::yes); },
      [&] { (void)machine.files.rename("/tmp/new", "/tmp/newer"); },
      [&] { (void)machine.files.syncFolder("/tmp"); },
      [&] { (void)machine.files.setMode("/tmp/newer", 0644); },
      [&] { (void)machine.files.setModified("/tmp/newer", laptop.now()); },
      [&] { (void)machine.files.remove("/tmp/newer"); },
      [&] { (void)machine.files.makeFolders("/tmp/a/b"); },
      [&] { machine.processes.pause(pid, start); },
      [&] { machine.processes.resume(pid, start); },
      [&] { machine.processes.setBackgroundPriority(pid, start); },
      [&] { machine.processes.setNormalPriority(pid, start); },
      [&] {
        (void)machine.commands.run("/usr/bin/sudo", {"-n", "/usr/bin/pmset", "-a", "disablesleep", "1"});
      },
      [&] { (void)machine.displays.setBrightness(1, 0); },
      [&] { (void)machine.assertions.holdDisplayAwake("x"); },
      [&] {
        machine.displays.beginConfiguration();
        (void)machine.displays.setEnabled(1, false);
        (void)machine.displays.completeConfiguration();
      },
  };
  std::int64_t expected = 0;
  for (const auto& change : changes) {
    change();
    EXPECT_EQ(laptop.faults().operations(), ++expected) << laptop.faults().log().back();
  }
}

TEST(MemoryLaptop, ACrashHappensBeforeOrAfterItsOperationAndTheDeadDoNoHarm) {
  for (const auto when : {MemoryFaults::When::before, MemoryFaults::When::after}) {
    MemoryLaptop laptop;
    Files& files = laptop.machine().files;
    laptop.files().put("/tmp/a", "old");
    laptop.faults().crashAt(1, when);
    EXPECT_THROW((void)files.write("/tmp/a", "new", Files::Sync::no), Crash);
    EXPECT_EQ(files.read("/tmp/a"), when == MemoryFaults::When::after ? "new" : "old");
    EXPECT_FALSE(files.write("/tmp/a", "by a ghost", Files::Sync::no));
    EXPECT_NE(laptop.machine().commands.run("/usr/bin/pmset", {"displaysleepnow"}).code, 0);
    laptop.machine().defaults.set("ghost", true);
    EXPECT_FALSE(laptop.switches().displayAsleep);
    laptop.restart();
    EXPECT_TRUE(files.write("/tmp/a", "anew", Files::Sync::no));
    EXPECT_FALSE(laptop.machine().defaults.flag("ghost"));
  }
}

TEST(MemoryLaptop, ARestartDropsAllThatWasTheProcesss) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  int calls = 0;
  const auto count = [&] { ++calls; };
  const auto timer = machine.queue.every(Seconds{1}, Seconds{0}, count);
  const auto change = machine.power.onChange(count);
  const auto watch = machine.fileEvents.watch("/tmp", "a", count);
  const auto listener = machine.broadcast.listen([&](const std::string&) { ++calls; });
  const auto activity = machine.assertions.beginActivity(Assertions::Activity::preventingIdleSystemSleep, "why");
  machine.queue.post(count);
  EXPECT_NE(machine.assertions.holdDisplayAwake("x"), 0u);
  EXPECT_EQ(machine.broadcast.post("x"), Broadcast::Sent::yes);
  EXPECT_EQ(laptop.activities().size(), 1u);
  const Pid before = machine.processes.self();
  MemoryProcess child;
  child.parent = before;
  const Pid orphan = laptop.processes().add(child);
  machine.defaults.set("kept", 1.0);

  laptop.restart();
  laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::closed; });
  laptop.files().put("/tmp/a", "x");
  EXPECT_EQ(machine.broadcast.post("y"), Broadcast::Sent::nobodyListens);
  laptop.advance(10);
  EXPECT_EQ(calls, 0);
  EXPECT_FALSE(laptop.switches().displayAssertion);
  EXPECT_TRUE(laptop.activities().empty());
  EXPECT_NE(machine.processes.self(), before);
  EXPECT_FALSE(machine.processes.exists(before));
  EXPECT_EQ(machine.processes.parent(orphan), 1);
  EXPECT_EQ(machine.defaults.number("kept"), 1.0);
  EXPECT_FALSE(machine.defaults.flag("kept")) << "a value of another type counts as absent";
}

TEST(MemoryLaptop, ALossOfPowerBootsAnew) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  MemoryProcess process;
  process.path = "/bin/a";
  const Pid pid = laptop.processes().add(process);
  const Date before = laptop.now();
  const auto boot = machine.clock.bootTime();
  EXPECT_EQ(boot, before + -3600.0);
  (void)machine.commands.run("/usr/bin/sudo", {"-n", "/usr/bin/pmset", "-a", "disablesleep", "1"});
  laptop.powerLoss(Seconds{120});
  EXPECT_FALSE(machine.processes.exists(pid));
  EXPECT_TRUE(machine.processes.exists(1) && machine.processes.exists(machine.processes.self()));
  EXPECT_EQ(secondsBetween(before, laptop.now()), 120);
  EXPECT_EQ(machine.clock.sinceBoot().count(), 0);
  EXPECT_EQ(machine.clock.bootTime(), before + 120.0);
  EXPECT_TRUE(laptop.switches().sleepDisabled) << "the sleep switch is a stored setting";
}

TEST(MemoryLaptop, TheBootTimeStaysAsFirstAsked) {
  MemoryLaptop laptop;
  const auto first = laptop.machine().clock.bootTime();
  laptop.stepClock(500);
  EXPECT_EQ(laptop.machine().clock.bootTime(), first);
  laptop.restart();
  EXPECT_EQ(laptop.machine().clock.bootTime(), *first + 500.0);
}

// Not a benchmark: it catches work per operation that grows with what was done before.
TEST(MemoryLaptop, ADayOfTicksIsCheap) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  const std::string folder = machine.surroundings.stateFolder;
  machine.files.makeFolders(folder);
  for (int i = 0; i < 20; ++i) {
    MemoryProcess process;
    process.path = "/usr/bin/tool";
    process.watts = 0.1;
    laptop.processes().add(process);
  }
  int ticks = 0;
  const auto tick = machine.queue.every(Seconds{2}, Seconds{1}, [&] {
    ++ticks;
    const std::string temporary = folder + "/alive.tmp";
    (void)machine.files.create(temporary, 0644);
    (void)machine.files.write(temporary, "1 2 3", Files::Sync::no);
    (void)machine.files.rename(temporary, folder + "/alive");
    for (const char* name : {"/config.json", "/hold", "/display-off"}) (void)machine.files.status(folder + name);
    (void)machine.power.clamshellClosed();
    if (ticks % 5 != 0) return;
    (void)machine.power.battery();
    for (const Pid pid : machine.processes.allPids()) {
      (void)machine.processes.usage(pid);
      (void)machine.processes.path(pid);
    }
  });
  const auto begin = std::chrono::steady_clock::now();
  laptop.advance(86'400);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(ticks, 43'200);
  EXPECT_EQ(laptop.faults().operations(), 3 * 43'200 + 1);
  EXPECT_LT(took.count(), 60) << "seconds, with room for sanitizers on a busy machine";
  RecordProperty("seconds", std::to_string(took.count()));
}

}  // namespace
}  // namespace tovi
