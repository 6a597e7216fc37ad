// A desk with a laptop on it: an agent at work in a terminal, and applications beside it that a closed lid affects.
#pragma once

#include <string>

#include "engine/World.h"

namespace tovi {

inline constexpr char kNotes[] = "/Applications/Notes.app";
inline constexpr char kMusic[] = "/Applications/Music.app";
inline constexpr char kDocker[] = "/Applications/Docker.app";
inline constexpr char kTerminal[] = "/Applications/Terminal.app";

struct Desk : World {
  Pid notes, notesHelper, music, docker, terminal, shell, claude, stranger, daemon;

  explicit Desk(const std::string& settings = R"({"preset": "longest", "screenOffNoLock": true})") {
    config(settings);
    notes = app(kNotes, "com.example.notes", "Notes");
    notesHelper = program(std::string(kNotes) + "/Contents/Frameworks/Helper.app/Contents/MacOS/Helper", notes);
    music = app(kMusic, "com.spotify.client", "Music");
    docker = app(kDocker, "com.docker.docker", "Docker Desktop");
    terminal = app(kTerminal, "com.example.terminal", "Terminal");
    shell = program("/bin/zsh", terminal);
    claude = agent(2, "claude", shell);
    stranger = laptop.processes().add({.path = std::string(kNotes) + "/Contents/MacOS/Notes", .mine = false});
    daemon = program("/usr/libexec/daemon");
  }

  Pid app(const std::string& path, const std::string& bundle, const std::string& name) {
    const Pid pid = program(path + "/Contents/MacOS/" + name);
    laptop.edit([&](LaptopReport& report) { report.applications.push_back({pid, name, bundle, path, true}); });
    return pid;
  }

  // "paused", "slow" or "normal".
  std::string treatment(Pid pid) {
    const MemoryProcess* process = laptop.processes().find(pid);
    return process == nullptr ? "gone" : process->stopped ? "paused" : process->background ? "slow" : "normal";
  }

  void work() {
    laptop.advance(12);
    ASSERT_TRUE(holds(true));
  }

  // The lid closes on all of that, and everything is in force.
  void close() {
    start();
    work();
    lid(true);
  }

  // What is still changed on the laptop, in words; empty when everything is back.
  std::string changed() {
    std::string words;
    for (const Pid pid : {notes, notesHelper, music, docker, terminal, shell, claude, stranger, daemon}) {
      if (treatment(pid) != "normal") words += "process " + treatment(pid) + "; ";
    }
    const LaptopSwitches& switches = laptop.switches();
    if (switches.batteryMode.at("lowpowermode") != 0) words += "low power; ";
    if (!switches.autoBackup) words += "backups; ";
    if (!switches.display(1).enabled) words += "screen off; ";
    if (switches.display(1).brightness != 0.8) words += "screen dark; ";
    if (switches.displayAssertion) words += "display held awake; ";
    for (const char* file :
         {"touched.json", "powermode-restore", "timemachine-restore", "brightness-restore", "display-off"}) {
      if (state.exists(file)) words += std::string(file) + "; ";
    }
    return words;
  }
};

}  // namespace tovi
