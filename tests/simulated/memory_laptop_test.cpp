#include "platform/simulated/MemoryLaptop.h"

#include <gtest/gtest.h>

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
      {[](LaptopReport& r) {
         r.events = {2, 2, 1};
         r.lid = LaptopLid::open;
       },
       "change poweredOn didWake "},
      {[](LaptopReport& r) { r.events = {}; }, ""},                 // counters that shrink say nothing
      {[](LaptopReport& r) { r.events.didWake = 1; }, "didWake "},  // and start anew from there
  };
  for (const auto& [edit, expected] : cases) {
    heard.clear();
    laptop.edit(edit);
    EXPECT_EQ(heard, "");
    laptop.settle();
    EXPECT_EQ(heard, expected);
  }
}

TEST(MemoryLaptop, AnOpenedLidLightsTheScreenAndAWakeEndsSleep) {
  MemoryLaptop laptop;
  laptop.setSwitches([](LaptopSwitches& switches) { switches.asleep = switches.displayAsleep = true; });
  laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::closed; });
  EXPECT_TRUE(laptop.switches().asleep && laptop.switches().displayAsleep);
  laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::open; });
  EXPECT_TRUE(laptop.switches().asleep && !laptop.switches().displayAsleep);
  laptop.edit([](LaptopReport& report) { report.events.didWake++; });
  EXPECT_FALSE(laptop.switches().asleep);
}

TEST(MemoryLaptop, ScreensSwitchInTransactionsAndFailByName) {
  MemoryLaptop laptop;
  Displays& displays = laptop.machine().displays;
  laptop.edit([](LaptopReport& report) {
    report.displays = {{1, true}, {2, false}};
    report.lid = LaptopLid::closed;  // takes none away
  });
  EXPECT_NE(displays.setEnabled(1, false), 0) << "no transaction";
  ASSERT_TRUE(displays.beginConfiguration());
  EXPECT_FALSE(displays.beginConfiguration()) << "one at a time";
  EXPECT_EQ(displays.setEnabled(9, false), LaptopDisplays::kNoSuchDisplay);
  EXPECT_EQ(displays.setEnabled(1, false), 0);
  EXPECT_EQ(displays.online().size(), 2u) << "nothing switches before the transaction completes";
  displays.cancelConfiguration();
  EXPECT_NE(displays.completeConfiguration(), 0);
  displays.beginConfiguration();
  EXPECT_EQ(displays.setEnabled(1, false) + displays.completeConfiguration(), 0);
  EXPECT_EQ(displays.online(), (std::vector<Display>{{2, false}}));
  EXPECT_FALSE(displays.brightness(1)) << "a screen that is off tells nothing";
  EXPECT_NE(displays.setBrightness(2, 0.5f), 0) << "only the built-in screen can be dimmed";

  laptop.edit([](LaptopReport& report) { report.refuse = {"display 1 on", "brightness 1", "display-assertion"}; });
  displays.beginConfiguration();
  EXPECT_EQ(displays.setEnabled(1, true), LaptopDisplays::kFailure);
  EXPECT_EQ(displays.setBrightness(1, 0.0f), LaptopDisplays::kFailure);
  EXPECT_EQ(laptop.machine().assertions.holdDisplayAwake("x"), 0u);
}

TEST(MemoryLaptop, ApplicationsAreProcessesInBundlesAndTheReportHasTheLastWord) {
  MemoryLaptop laptop;
  Workspace& workspace = laptop.machine().workspace;
  laptop.files().put("/A.app/Contents/Info.plist",
                     "<plist><dict><key>CFBundleName</key><string>Aye</string><key>CFBundleIdentifier</key>"
                     "<string>com.a</string><key>X</key><dict><key>LSUIElement</key><true/></dict></dict></plist>");
  laptop.files().put("/A.app/H.app/Contents/Info.plist",
                     "<plist><dict><key>LSUIElement</key><string>1</string></dict></plist>");
  const auto add = [&](const char* path) { return laptop.processes().add({.path = path}); };
  const Pid app = add("/A.app/Contents/MacOS/A"), helper = add("/A.app/H.app/Contents/MacOS/H");
  const Pid bare = add("/Bare.app/run"), tool = add("/usr/bin/make");
  const auto told = [&](Pid pid) {
    const auto found = workspace.application(pid).value_or(RunningApplication{});
    return found.name + " " + found.path.value_or("-") + (found.regular ? "" : " in the background");
  };
  EXPECT_EQ(told(app), "Aye /A.app");
  EXPECT_EQ(told(helper), "H /A.app/H.app in the background") << "a bundle of its own";
  EXPECT_EQ(told(bare), "Bare /Bare.app");
  EXPECT_FALSE(workspace.application(tool));
  EXPECT_EQ(workspace.pathForBundleIdentifier("com.a"), "/A.app");

  laptop.edit([&](LaptopReport& report) {
    report.applications = {{tool, "Listed", "com.listed", "/Elsewhere.app", true},
                           {0, "Described", "com.b", "/Bare.app", false}};
  });
  EXPECT_EQ(told(tool), "Listed /Elsewhere.app");
  EXPECT_EQ(told(bare), "Described /Bare.app in the background");
  EXPECT_EQ(workspace.runningApplications().size(), 5u) << "with Tovi itself; a description alone doesn't run";
  EXPECT_EQ(workspace.pathForBundleIdentifier("com.listed"), "/Elsewhere.app");
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
}

TEST(MemoryLaptop, EveryKindOfChangeIsAnOperation) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  const Pid pid = laptop.processes().add({.path = "/bin/a"});
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
      [&] { (void)machine.commands.run("/usr/bin/pmset", {"displaysleepnow"}); },
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
  const Pid before = machine.processes.self();
  const Pid orphan = laptop.processes().add({.parent = before, .path = "/bin/a"});
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
}

TEST(MemoryLaptop, ALossOfPowerBootsAnew) {
  MemoryLaptop laptop;
  Machine& machine = laptop.machine();
  const Pid pid = laptop.processes().add({.path = "/bin/a"});
  const Date before = laptop.now();
  (void)machine.commands.run("/usr/bin/sudo", {"-n", "/usr/bin/pmset", "-a", "disablesleep", "1"});
  laptop.powerLoss(Seconds{120});
  EXPECT_FALSE(machine.processes.exists(pid));
  EXPECT_TRUE(machine.processes.exists(machine.processes.self()));
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

}  // namespace
}  // namespace tovi
