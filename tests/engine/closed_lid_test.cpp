// The regime of the closed lid: who is slowed and paused, what is switched, and that all of it comes back.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "engine/Desk.h"
#include "engine/Warnings.h"

namespace tovi {
namespace {

TEST(ClosedLid, EachAppGetsWhatPresetAndRuleSay) {
  struct Case {
    const char* settings;
    const char *notes, *helper, *music, *docker;
  };
  for (const Case& row :
       {Case{R"({"preset": "longest"})", "paused", "paused", "normal", "slow"},
        Case{R"({"preset": "balanced"})", "slow", "slow", "slow", "slow"},
        Case{R"({"preset": "speed"})", "normal", "normal", "normal", "normal"},
        Case{R"({"preset": "speed", "appRules": {"com.example.notes": "pause"}})", "paused", "paused", "normal",
             "normal"},
        Case{R"({"preset": "longest", "appRules": {"com.example.notes": "leave", "com.spotify.client": "slow",
                 "com.docker.docker": "pause"}})",
             "normal", "normal", "slow", "paused"}}) {
    Desk desk(row.settings);
    desk.start();
    desk.work();
    desk.lid(true);
    EXPECT_EQ(desk.treatment(desk.notes), row.notes) << row.settings;
    EXPECT_EQ(desk.treatment(desk.notesHelper), row.helper) << row.settings;
    EXPECT_EQ(desk.treatment(desk.music), row.music) << row.settings;
    EXPECT_EQ(desk.treatment(desk.docker), row.docker) << row.settings;
    // The agent, its shell and the terminal they run in, another person's process, a system daemon.
    for (const Pid pid : {desk.terminal, desk.shell, desk.claude, desk.stranger, desk.daemon}) {
      EXPECT_EQ(desk.treatment(pid), "normal") << row.settings;
    }
    desk.lid(false);
    EXPECT_EQ(desk.changed(), "") << row.settings;
    EXPECT_TRUE(desk.holds(true)) << row.settings;
  }
}

TEST(ClosedLid, SettingsChangedMeanwhileTakeEffectAtOnce) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  desk.engine().setPreset(Preset::balanced);
  EXPECT_EQ(desk.treatment(desk.notes), "slow");
  desk.engine().setRule(AppRule::leave, "com.example.notes");
  EXPECT_EQ(desk.treatment(desk.notes), "normal");
  desk.engine().setPreset(Preset::speed);
  EXPECT_EQ(desk.treatment(desk.docker), "normal");
  EXPECT_FALSE(desk.state.exists("powermode-restore"));
  EXPECT_TRUE(desk.laptop.switches().autoBackup);
}

TEST(ClosedLid, AHoldsProcessAndItsTreeAreSparedButItsCompilersMayBeSlowed) {
  Desk desk(R"({"preset": "longest", "slowBuildsWhileClosed": true})");
  desk.start();
  const Pid render = desk.program(std::string(kNotes) + "/Contents/MacOS/Export", desk.notes);
  const Pid clang = desk.program("/usr/bin/clang", desk.claude);
  desk.work();
  desk.engine().addHold("export", {}, render, {});
  desk.lid(true);
  desk.laptop.advance(32);
  EXPECT_EQ(desk.treatment(render), "normal");
  EXPECT_EQ(desk.treatment(desk.notes), "normal");  // its launcher, and with it the whole application
  EXPECT_EQ(desk.treatment(clang), "slow");
}

TEST(ClosedLid, LatecomersAreCaughtAndTheDeadForgottenAndTheirNumbersNeverSignalled) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  const Pid late = desk.program(std::string(kNotes) + "/Contents/MacOS/Late", desk.notes);
  desk.laptop.processes().exit(desk.notesHelper);
  desk.laptop.processes().add({.pid = desk.notesHelper, .parent = 1, .path = "/usr/bin/innocent"});
  desk.laptop.advance(31);
  EXPECT_EQ(desk.treatment(late), "paused");
  EXPECT_EQ(desk.treatment(desk.notesHelper), "normal");
  const auto journal = Journal::load(desk.state);
  EXPECT_TRUE(std::none_of(journal.begin(), journal.end(),
                           [&](const Touched& entry) { return entry.pid == desk.notesHelper; }));
  desk.laptop.processes().forgetEffects();
  desk.lid(false);
  for (const ProcessEffect& effect : desk.laptop.processes().effects()) EXPECT_NE(effect.pid, desk.notesHelper);
  EXPECT_EQ(desk.changed(), "");
}

TEST(ClosedLid, WhatASlowedAppStartedMeanwhileIsFreedWithIt) {
  Desk desk(R"({"preset": "balanced"})");
  desk.start();
  desk.work();
  desk.lid(true);
  const Pid tool = desk.program("/usr/bin/rsync", desk.notes);
  EXPECT_EQ(desk.treatment(tool), "slow");  // inherited, and in no journal
  desk.lid(false);
  EXPECT_EQ(desk.treatment(tool), "normal");
}

TEST(ClosedLid, WhatASlowedToolLeftBehindIsFreedThoughTheToolHasGone) {
  Desk desk(R"({"preset": "speed", "slowBuildsWhileClosed": true})");
  desk.start();
  const Pid make = desk.program("/usr/bin/make", desk.claude);
  desk.work();
  desk.lid(true);
  ASSERT_EQ(desk.treatment(make), "slow");
  const Pid server = desk.program("/usr/bin/buildserver", make);
  const Pid other = desk.program("/usr/bin/make", desk.claude);
  desk.laptop.processes().exec(other, "/usr/bin/make");
  ASSERT_EQ(desk.treatment(server), "slow");
  desk.laptop.processes().exit(make);
  desk.laptop.advance(31);
  EXPECT_EQ(desk.treatment(server), "normal") << "nobody may touch it, and the lid is closed for hours";
  EXPECT_EQ(desk.treatment(other), "slow");
  const Pid late = desk.program("/usr/bin/buildserver", other);
  desk.laptop.processes().exec(other, "/usr/bin/other");
  desk.lid(false);
  EXPECT_EQ(desk.treatment(late), "normal");
}

TEST(ClosedLid, AnApplicationThatSomebodyElseFreedIsTakenAnewAndRecordedFirst) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  // A rescue that took this process for dead.
  Journal::undo(desk.laptop.machine(), Journal::load(desk.state));
  desk.state.remove(desk.state.path("touched.json"));
  desk.laptop.advance(31);
  EXPECT_EQ(desk.treatment(desk.notes), "paused");
  EXPECT_EQ(desk.treatment(desk.docker), "slow");
  EXPECT_EQ(Journal::load(desk.state).size(), 3u);
  desk.lid(false);
  EXPECT_EQ(desk.changed(), "");
}

TEST(ClosedLid, ClassesOfWorkAreKnownByWhatTheyAre) {
  struct Case {
    const char* what;
    const char* path;
    const char* bundle;  // of a regular application; null: a bare process
    const char* settings;
    const char* treatment;
  };
  for (const Case& row : {
           Case{"an ordinary system application", "/System/Applications/Notes.app", "com.apple.notes", "{}", "paused"},
           Case{"an application on the sealed volume", "/x/Cryptexes/App/System/Applications/Any.app", "com.x", "{}",
                "paused"},
           Case{"a part of the system", "/System/Library/CoreServices/Finder.app", "com.apple.finder", "{}", "normal"},
           Case{"another part", "/Library/Apple/Any.app", "com.apple.any", "{}", "normal"},
           Case{"the Claude app", "/Applications/Claude.app", "com.anthropic.claudefordesktop", "{}", "normal"},
           Case{"Tovi", "/Applications/Tovi.app", "com.norvane.Tovi", "{}", "normal"},
           Case{"a service by its name", "/Applications/Postgres.app", "com.example.db", "{}", "slow"},
           Case{"a service that the person pauses", "/Applications/Postgres.app", "com.example.db",
                R"({"appRules": {"com.example.db": "pause"}})", "paused"},
           Case{"a preview host", "/x/previewsd", nullptr, "{}", "paused"},
           Case{"a preview host left alone", "/x/previewsd", nullptr, R"({"pauseSimulators": false})", "normal"},
           Case{"a simulator", "/x/launchd_sim", nullptr, R"({"shutDownSimulators": false})", "paused"},
           Case{"a simulator that is shut down", "/x/launchd_sim", nullptr, R"({"shutDownSimulators": true})",
                "normal"},
           Case{"a music daemon", "/opt/player", nullptr, "{}", "paused"},
           Case{"a music daemon left alone", "/opt/player", nullptr, R"({"pauseBackgroundAudio": false})", "normal"},
           Case{"a sound of the system", "/usr/libexec/player", nullptr, "{}", "normal"},
       }) {
    Desk desk(row.settings);
    const std::filesystem::path path = row.path;
    const Pid pid = row.bundle ? desk.app(path, row.bundle, path.stem()) : desk.program(path);
    if (path.filename() == "player") {
      AssertionRecord sound;
      sound.pid = pid;
      sound.resourcesUsed = {"audio-out-1"};
      desk.laptop.edit([&](LaptopReport& report) { report.assertions.push_back(sound); });
    }
    desk.start().setPreset(Preset::longest);
    desk.work();
    desk.lid(true);
    EXPECT_EQ(desk.treatment(pid), row.treatment) << row.what;
    EXPECT_EQ(desk.treatment(desk.daemon), "normal") << row.what;
    desk.lid(false);
    EXPECT_EQ(desk.treatment(pid), "normal") << row.what;
  }
}

TEST(ClosedLid, ATestRunAndAnAgentInTheIdeKeepTheirSimulators) {
  for (const char* at : {"/x/xcodebuild", "/x/MyTests-Runner", "/x/Developer/usr/bin/mcpbridge"}) {
    Desk desk(R"({"preset": "longest", "shutDownSimulators": false})");
    const Pid simulator = desk.app("/Applications/Simulator.app", "com.apple.iphonesimulator", "Simulator");
    const Pid ide = desk.app("/Applications/Xcode.app", "com.apple.dt.Xcode", "Xcode");
    const Pid device = desk.program("/x/launchd_sim");
    desk.program(at);
    desk.start();
    desk.work();
    desk.lid(true);
    EXPECT_EQ(desk.treatment(simulator), "normal") << at;
    EXPECT_EQ(desk.treatment(device), "normal") << at;
    EXPECT_EQ(desk.treatment(ide), std::string(at).ends_with("mcpbridge") ? "normal" : "slow") << at;
  }
}

TEST(ClosedLid, SimulatorsAreShutDownUnlessSomethingRunsInThem) {
  for (const bool tested : {false, true}) {
    Desk desk(R"({"preset": "longest", "shutDownSimulators": true})");
    desk.program("/x/launchd_sim");
    if (tested) desk.program("/x/xctest");
    desk.start();
    desk.work();
    desk.lid(true);
    desk.laptop.settle();
    EXPECT_EQ(desk.laptop.commandCount("/usr/bin/xcrun simctl shutdown all"), tested ? 0u : 1u);
  }
}

TEST(ClosedLid, WithoutAJournalNothingIsTouched) {
  Desk desk;
  desk.start();
  desk.work();
  desk.laptop.files().setFull(true);
  desk.lid(true);
  desk.laptop.advance(62);
  EXPECT_EQ(desk.changed(), "display held awake; ");
  desk.laptop.files().setFull(false);
  desk.laptop.advance(32);
  EXPECT_EQ(desk.treatment(desk.notes), "paused");
}

TEST(ClosedLid, EveryChangeIsRecordedBeforeItIsMadeAndTheRecordGoesAfterItsUndo) {
  Desk desk;
  desk.start();
  desk.work();
  const auto from = desk.laptop.faults().operations() + 1;
  desk.lid(true);
  desk.lid(false);
  const auto log = desk.laptop.faults().log(from);
  const auto find = [&](const std::string& verb, const std::string& what, bool last) {
    std::ptrdiff_t at = -1;
    for (std::size_t line = 0; line < log.size(); ++line) {
      if (!log[line].starts_with(verb) || log[line].find(what) == std::string::npos) continue;
      at = static_cast<std::ptrdiff_t>(line);
      if (!last) break;
    }
    EXPECT_GE(at, 0) << verb << " " << what;
    return at;
  };
  struct Pair {
    const char *file, *verb, *change, *undo;
  };
  for (const Pair& pair :
       {Pair{"powermode-restore", "laptop", "lowpowermode 1", "lowpowermode 0"},
        Pair{"timemachine-restore", "laptop", "tmutil disable", "tmutil enable"},
        Pair{"brightness-restore", "laptop", "brightness 1", "brightness 1"},
        Pair{"display-off", "laptop", "display 1 off", "display 1 on"}, Pair{"touched.json", "kill", "STOP", "CONT"}}) {
    EXPECT_LT(find("rename", pair.file, false), find(pair.verb, pair.change, false)) << pair.file;
    EXPECT_GT(find("remove", pair.file, true), find(pair.verb, pair.undo, true)) << pair.file;
  }
}

TEST(ClosedLid, ARefusedUndoKeepsItsRecordAndALaterTickSucceeds) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  desk.refuse({"pmset -b lowpowermode 0", "tmutil enable", "display 1 on"});
  desk.lid(false);
  EXPECT_EQ(desk.engine().warning.get(), warnings::kBackupsStuck);
  for (const char* file : {"powermode-restore", "timemachine-restore", "display-off"}) {
    EXPECT_TRUE(desk.state.exists(file)) << file;
  }
  EXPECT_EQ(desk.treatment(desk.notes), "normal");  // each step runs whatever the one before gave
  desk.laptop.advance(30);
  EXPECT_TRUE(desk.state.exists("powermode-restore"));
  desk.refuse({});
  desk.laptop.advance(12);
  EXPECT_EQ(desk.changed(), "");
  EXPECT_EQ(desk.engine().warning.get(), std::nullopt);
}

TEST(ClosedLid, ARefusedChangeLeavesStateAndRecordInAgreement) {
  Desk desk;
  desk.start();
  desk.work();
  desk.refuse({"pmset -b lowpowermode 1", "tmutil disable", "display 1 off", "brightness 1"});
  desk.lid(true);
  const auto changed = desk.changed();
  EXPECT_EQ(changed.find("restore"), std::string::npos) << changed;
  EXPECT_EQ(changed.find("display-off"), std::string::npos) << changed;
  EXPECT_EQ(changed.find("low power"), std::string::npos) << changed;
}

TEST(ClosedLid, AModeThatWasOnIsLeftOn) {
  Desk desk;
  desk.laptop.setSwitches([](LaptopSwitches& switches) {
    switches.batteryMode["lowpowermode"] = 1;
    switches.autoBackup = false;
  });
  desk.start();
  desk.work();
  desk.lid(true);
  desk.lid(false);
  EXPECT_EQ(desk.laptop.switches().batteryMode.at("lowpowermode"), 1);
  EXPECT_FALSE(desk.laptop.switches().autoBackup);
}

TEST(ClosedLid, AScreenThatLocksWhenSwitchedOffIsNeverSwitchedOffAgain) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  EXPECT_FALSE(desk.laptop.switches().display(1).enabled);
  desk.laptop.edit([](LaptopReport& report) { report.locked = true; });
  desk.laptop.advance(3);
  EXPECT_TRUE(desk.laptop.switches().display(1).enabled);
  EXPECT_EQ(desk.laptop.switches().display(1).brightness, 0);
  EXPECT_FALSE(desk.engine().config->screenOffNoLock);
  EXPECT_EQ(desk.engine().warning.get(), warnings::kScreenLocks);
}

TEST(ClosedLid, LockingOnCloseNeitherDimsNorHoldsTheScreen) {
  Desk desk(R"({"lockOnClose": true, "screenOffNoLock": true})");
  desk.start();
  desk.work();
  desk.lid(true);
  EXPECT_TRUE(desk.laptop.switches().displayAsleep);
  EXPECT_FALSE(desk.laptop.switches().displayAssertion);
  EXPECT_EQ(desk.laptop.switches().display(1).brightness, 0.8);
  EXPECT_TRUE(desk.laptop.switches().display(1).enabled);
}

TEST(ClosedLid, HeatForcesTheStrictestPresetAndGivesItBack) {
  Desk desk(R"({"preset": "speed"})");
  desk.start();
  desk.work();
  desk.lid(true);
  EXPECT_EQ(desk.treatment(desk.notes), "normal");
  desk.heat(ThermalState::serious);
  EXPECT_EQ(desk.treatment(desk.notes), "paused");
  EXPECT_EQ(desk.laptop.switches().batteryMode.at("lowpowermode"), 1);
  desk.heat(ThermalState::fair);
  EXPECT_EQ(desk.treatment(desk.notes), "normal");
  EXPECT_EQ(desk.laptop.switches().batteryMode.at("lowpowermode"), 0);
}

TEST(ClosedLid, TheSessionIsToldWhenTheLidOpens) {
  Desk desk;
  desk.start();
  desk.work();
  desk.lid(true);
  desk.laptop.advance(125);
  desk.lid(false);
  EXPECT_EQ(desk.announced.back(), std::pair(std::string("Welcome back"), std::string("Stayed awake 2 min · used 0%")));
  ASSERT_EQ(desk.engine().stats->sessions.size(), 1u);
  EXPECT_EQ(desk.engine().stats->sessions[0].agent, "Claude Code");
}

// One operation of a whole session fails, each in its turn; a little later everything is back all the same.
TEST(ClosedLid, AnyOneFailureOfASessionIsMadeGoodByLaterTicks) {
  std::int64_t operations = 0;
  for (std::int64_t number = 0; number <= operations; ++number) {
    Desk desk;
    desk.start();
    desk.work();
    const auto before = desk.laptop.faults().operations();
    if (number > 0) desk.laptop.faults().failOperation(before + number);
    desk.lid(true);
    desk.laptop.advance(34);
    desk.lid(false);
    desk.laptop.advance(1);
    if (number == 0) operations = desk.laptop.faults().operations() - before;
    desk.laptop.advance(40);
    ASSERT_EQ(desk.changed(), "") << "operation " << number << " failed: "
                                  << (number > 0 ? desk.laptop.faults().log(before + number).front() : "none");
    ASSERT_TRUE(desk.sleepOff() && desk.marker()) << number;
  }
  EXPECT_GT(operations, 60);
}

}  // namespace
}  // namespace tovi
