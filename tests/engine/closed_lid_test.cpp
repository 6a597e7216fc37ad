// The regime of the closed lid: who is slowed and paused, what is switched, and that all of it comes back.

#include <gtest/gtest.h>

#include <filesystem>

#include "engine/Desk.h"
#include "engine/Warnings.h"

namespace tovi {
namespace {

struct ClosedLid : testing::Test, Desk {};

TEST_F(ClosedLid, EachAppGetsWhatPresetAndRuleSayAndAChangeTakesEffectAtOnce) {
  const auto treatments = [&] {
    // The agent, its shell and the terminal they run in, another person's process, a system daemon.
    for (const Pid pid : {terminal, shell, claude, stranger, daemon}) EXPECT_EQ(treatment(pid), "normal");
    return treatment(notes) + " " + treatment(notesHelper) + " " + treatment(music) + " " + treatment(docker);
  };
  close();
  EXPECT_EQ(treatments(), "paused paused normal slow");
  engine().setPreset(Preset::balanced);
  EXPECT_EQ(treatments(), "slow slow slow slow");
  engine().setPreset(Preset::speed);
  EXPECT_EQ(treatments(), "normal normal normal normal");
  EXPECT_FALSE(state.exists("powermode-restore") || state.exists("timemachine-restore"));
  engine().setRule(AppRule::pause, "com.example.notes");
  engine().setRule(AppRule::slow, "com.spotify.client");
  EXPECT_EQ(treatments(), "paused paused slow normal");
  engine().setRule(AppRule::leave, "com.example.notes");
  engine().setPreset(Preset::longest);
  EXPECT_EQ(treatments(), "normal normal slow slow");
  lid(false);
  EXPECT_EQ(changed(), "");
  EXPECT_TRUE(holds(true));
}

TEST_F(ClosedLid, AHoldsProcessAndItsTreeAreSparedButItsCompilersMayBeSlowed) {
  config(R"({"preset": "longest", "slowBuildsWhileClosed": true})");
  const Pid render = program(std::string(kNotes) + "/Contents/MacOS/Export", notes);
  const Pid clang = program("/usr/bin/clang", claude);
  start().addHold("export", {}, render, {});
  lid(true);
  laptop.advance(32);
  EXPECT_EQ(treatment(render), "normal");
  EXPECT_EQ(treatment(notes), "normal") << "its launcher, and with it the whole application";
  EXPECT_EQ(treatment(clang), "slow");
}

TEST_F(ClosedLid, LatecomersAreCaughtAndTheDeadForgottenAndTheirNumbersNeverSignalled) {
  close();
  const Pid late = program(std::string(kNotes) + "/Contents/MacOS/Late", notes);
  reuse(notesHelper);
  laptop.advance(31);
  EXPECT_EQ(treatment(late), "paused");
  EXPECT_EQ(treatment(notesHelper), "normal");
  for (const Touched& entry : Journal::load(state)) EXPECT_NE(entry.pid, notesHelper);
  laptop.processes().forgetEffects();
  lid(false);
  for (const ProcessEffect& effect : laptop.processes().effects()) EXPECT_NE(effect.pid, notesHelper);
  EXPECT_EQ(changed(), "");
}

TEST_F(ClosedLid, WhatASlowedToolLeftBehindIsFreedThoughTheToolHasGone) {
  config(R"({"preset": "balanced", "slowBuildsWhileClosed": true})");
  const Pid make = program("/usr/bin/make", claude);
  close();
  const Pid tool = program("/usr/bin/rsync", notes);
  EXPECT_EQ(treatment(tool), "slow") << "inherited, and in no journal";
  ASSERT_EQ(treatment(make), "slow");
  const Pid server = program("/usr/bin/buildserver", make);
  const Pid other = program("/usr/bin/make", claude);
  laptop.processes().exec(other, "/usr/bin/make");
  ASSERT_EQ(treatment(server), "slow");
  laptop.processes().exit(make);
  laptop.advance(31);
  EXPECT_EQ(treatment(server), "normal") << "nobody may touch it, and the lid is closed for hours";
  EXPECT_EQ(treatment(other), "slow");
  const Pid late = program("/usr/bin/buildserver", other);
  laptop.processes().exec(other, "/usr/bin/other");
  lid(false);
  EXPECT_EQ(treatment(late), "normal");
  EXPECT_EQ(treatment(tool), "normal");
}

TEST_F(ClosedLid, AnApplicationThatSomebodyElseFreedIsTakenAnewAndRecordedFirst) {
  close();
  // A rescue that took this process for dead.
  Journal::undo(laptop.machine(), Journal::load(state));
  state.remove(state.path("touched.json"));
  laptop.advance(31);
  EXPECT_EQ(treatment(notes) + treatment(docker), "pausedslow");
  EXPECT_EQ(Journal::load(state).size(), 3u);
  lid(false);
  EXPECT_EQ(changed(), "");
}

TEST_F(ClosedLid, ClassesOfWorkAreKnownByWhatTheyAre) {
  struct Case {
    const char* path;
    const char* bundle;  // of a regular application; null: a bare process
    const char* treatment;
    const char* settings = "{}";
  };
  const char kShutDown[] = R"({"shutDownSimulators": true})";
  for (const Case& row : {
           Case{"/System/Applications/Notes.app", "com.apple.notes", "paused"},
           Case{"/x/Cryptexes/App/System/Applications/Any.app", "com.x", "paused"},
           Case{"/System/Library/CoreServices/Finder.app", "com.apple.finder", "normal"},
           Case{"/Library/Apple/Any.app", "com.apple.any", "normal"},
           Case{"/Applications/Claude.app", "com.anthropic.claudefordesktop", "normal"},
           Case{"/Applications/Tovi.app", "com.norvane.Tovi", "normal"},
           Case{"/Applications/Postgres.app", "com.example.db", "slow"},  // a service by its name
           Case{"/Applications/Postgres.app", "com.example.db", "paused",
                R"({"appRules": {"com.example.db": "pause"}})"},
           Case{"/x/previewsd", nullptr, "paused"},
           Case{"/x/previewsd", nullptr, "normal", R"({"pauseSimulators": false})"},
           Case{"/x/launchd_sim", nullptr, "paused", R"({"shutDownSimulators": false})"},
           Case{"/x/launchd_sim", nullptr, "normal", kShutDown}, Case{"/opt/player", nullptr, "paused"},
           Case{"/opt/player", nullptr, "normal", R"({"pauseBackgroundAudio": false})"},
           Case{"/usr/libexec/player", nullptr, "normal"},  // a sound of the system
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
    desk.close();
    EXPECT_EQ(desk.treatment(pid), row.treatment) << row.path << row.settings;
    EXPECT_EQ(desk.laptop.commandCount("/usr/bin/xcrun simctl shutdown all"),
              std::string(row.settings) == kShutDown && path.filename() == "launchd_sim" ? 1u : 0u);
    desk.lid(false);
    EXPECT_EQ(desk.treatment(pid), "normal") << row.path;
  }
}

TEST_F(ClosedLid, ATestRunAndAnAgentInTheIdeKeepTheirSimulators) {
  for (const char* settings : {R"({"shutDownSimulators": false})", R"({"shutDownSimulators": true})"}) {
    for (const std::string at : {"/x/xcodebuild", "/x/MyTests-Runner", "/x/Developer/usr/bin/mcpbridge"}) {
      Desk desk(settings);
      const Pid simulator = desk.app("/Applications/Simulator.app", "com.apple.iphonesimulator", "Simulator");
      const Pid ide = desk.app("/Applications/Xcode.app", "com.apple.dt.Xcode", "Xcode");
      const Pid device = desk.program("/x/launchd_sim");
      desk.program(at);
      desk.start().setPreset(Preset::longest);
      desk.close();
      EXPECT_EQ(desk.treatment(simulator) + desk.treatment(device), "normalnormal") << at;
      EXPECT_EQ(desk.treatment(ide), at.ends_with("mcpbridge") ? "normal" : "slow") << at;
      EXPECT_EQ(desk.laptop.commandCount("/usr/bin/xcrun simctl shutdown all"), 0u) << at;
    }
  }
}

TEST_F(ClosedLid, WithoutAJournalNothingIsTouched) {
  start();
  work();
  laptop.files().setFull(true);
  lid(true);
  laptop.advance(62);
  EXPECT_EQ(changed(), "display held awake; ");
  laptop.files().setFull(false);
  laptop.advance(32);
  EXPECT_EQ(treatment(notes), "paused");
}

TEST_F(ClosedLid, ARefusedUndoKeepsItsRecordAndALaterTickSucceeds) {
  close();
  refuse({"pmset -b lowpowermode 0", "tmutil enable", "display 1 on"});
  lid(false);
  EXPECT_EQ(engine().warning.get(), warnings::kBackupsStuck);
  laptop.advance(30);
  for (const char* file : {"powermode-restore", "timemachine-restore", "display-off"}) {
    EXPECT_TRUE(state.exists(file)) << file;
  }
  EXPECT_EQ(treatment(notes), "normal") << "each step runs whatever the one before gave";
  refuse({});
  laptop.advance(12);
  EXPECT_EQ(changed(), "");
  EXPECT_EQ(engine().warning.get(), std::nullopt);
}

TEST_F(ClosedLid, ARefusedChangeLeavesStateAndRecordInAgreement) {
  refuse({"pmset -b lowpowermode 1", "tmutil disable", "display 1 off", "brightness 1"});
  close();
  EXPECT_EQ(changed(), "process paused; process paused; process slow; display held awake; touched.json; ");
}

TEST_F(ClosedLid, AScreenThatLocksWhenSwitchedOffIsNeverSwitchedOffAgain) {
  close();
  EXPECT_FALSE(laptop.switches().display(1).enabled);
  laptop.edit([](LaptopReport& report) { report.locked = true; });
  laptop.advance(3);
  EXPECT_TRUE(laptop.switches().display(1).enabled);
  EXPECT_EQ(laptop.switches().display(1).brightness, 0);
  EXPECT_FALSE(engine().config->screenOffNoLock);
  EXPECT_EQ(engine().warning.get(), warnings::kScreenLocks);
}

TEST_F(ClosedLid, LockingOnCloseNeitherDimsNorHoldsTheScreen) {
  config(R"({"lockOnClose": true, "screenOffNoLock": true})");
  close();
  EXPECT_TRUE(laptop.switches().displayAsleep);
  EXPECT_FALSE(laptop.switches().displayAssertion);
  EXPECT_EQ(laptop.switches().display(1).brightness, 0.8);
  EXPECT_TRUE(laptop.switches().display(1).enabled);
}

TEST_F(ClosedLid, HeatForcesTheStrictestPresetAndGivesItBackBeforeItEndsTheSession) {
  config(R"({"preset": "speed"})");
  close();
  EXPECT_EQ(treatment(notes), "normal");
  heat(ThermalState::serious);
  EXPECT_EQ(treatment(notes), "paused");
  EXPECT_EQ(laptop.switches().batteryMode.at("lowpowermode"), 1);
  heat(ThermalState::fair);
  EXPECT_EQ(treatment(notes), "normal");
  EXPECT_EQ(laptop.switches().batteryMode.at("lowpowermode"), 0);
  heat(ThermalState::serious);
  laptop.advance(298);
  EXPECT_TRUE(holds(true));
  laptop.advance(4);
  EXPECT_TRUE(holds(false));
  EXPECT_EQ(engine().blockedReason.get(), "Too hot");
  EXPECT_TRUE(asleep());
}

// One operation of a whole session fails, each in its turn; a little later everything is as it should be all the same.
TEST_F(ClosedLid, AnyOneFailureOfASessionIsMadeGoodByLaterTicks) {
  std::int64_t operations = 0;
  for (std::int64_t number = 0; number <= operations; ++number) {
    Desk desk;
    desk.start();
    const auto before = desk.laptop.faults().operations();
    if (number > 0) desk.laptop.faults().failOperation(before + number);
    desk.laptop.advance(12);
    desk.lid(true);
    desk.laptop.advance(34);
    desk.lid(false);
    desk.laptop.advance(41);
    const auto failed = [&] { return number > 0 ? desk.laptop.faults().log(before + number).front() : "none"; };
    ASSERT_EQ(desk.changed(), "") << number << ": " << failed();
    ASSERT_TRUE(desk.holds(true)) << number << ": " << failed();
    desk.turnOff();
    if (number == 0) operations = desk.laptop.faults().operations() - before;
    desk.laptop.advance(32);
    ASSERT_TRUE(desk.holds(false)) << number << ": " << failed();
  }
  EXPECT_GT(operations, 80);
}

}  // namespace
}  // namespace tovi
