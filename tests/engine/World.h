// An engine on a laptop in memory, set up and ready, with the few moves that its tests make again and again.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/StateFiles.h"
#include "engine/Engine.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {

struct World {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  std::unique_ptr<Engine> owned;
  std::vector<std::pair<std::string, std::string>> announced, noted;

  World() {
    laptop.files().put(laptop.surroundings().launchAgents + "/com.norvane.tovi.watchdog.plist", "<plist/>");
    laptop.files().put(state.path("watchdog.sh"), "#!/bin/sh\n", 0755);
    laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = true; });
  }

  Engine& start() {
    owned = std::make_unique<Engine>(laptop.machine(), false);
    owned->onAnnounce = [this](const std::string& title, const std::string& body) {
      announced.emplace_back(title, body);
    };
    owned->onNote = [this](const std::string& title, const std::string& body) { noted.emplace_back(title, body); };
    return *owned;
  }
  Engine& engine() { return owned ? *owned : start(); }

  // The process dies without a word, and another starts in its place.
  Engine& crashAndRestart() {
    laptop.restart();
    owned.reset();
    return start();
  }

  void config(const std::string& text) {
    laptop.advance(0.01);  // or an edit of the same length at the same moment can't be told from none
    laptop.files().put(state.path("config.json"), text);
  }
  void lid(bool closed) {
    laptop.edit([&](LaptopReport& report) { report.lid = closed ? LaptopLid::closed : LaptopLid::open; });
    laptop.settle();
  }
  void heat(ThermalState thermal) {
    laptop.edit([&](LaptopReport& report) { report.thermal = thermal; });
    laptop.settle();
  }
  void set(const std::function<void(Config&)>& change) {
    Config next = engine().config;
    change(next);
    engine().apply(next, true);
  }
  void turnOff() {
    set([](Config& config) { config.mode = Mode::off; });
  }
  void refuse(std::vector<std::string> commands) {
    laptop.edit([&](LaptopReport& report) { report.refuse = std::move(commands); });
  }
  void battery(int percent, bool charger = false) {
    laptop.edit([&](LaptopReport& report) {
      report.battery->currentCapacity = percent;
      report.battery->externalConnected = charger;
      report.battery->isCharging = charger;
      report.battery->instantAmperage = charger ? 1000 : -500;
    });
  }

  Pid agent(double watts = 2, const std::string& name = "claude", Pid parent = 1) {
    return laptop.processes().add({.parent = parent,
                                   .path = "/usr/local/bin/" + name,
                                   .arguments = {name},
                                   .workingDirectory = "/home/anna/project",
                                   .watts = watts,
                                   .cores = watts / 4});
  }
  Pid program(const std::string& path, Pid parent = 1, double watts = 0.5) {
    return laptop.processes().add({.parent = parent,
                                   .path = path,
                                   .arguments = {path},
                                   .workingDirectory = "/",
                                   .watts = watts,
                                   .cores = watts / 4});
  }
  // The number of a process that has gone, in other hands.
  void reuse(Pid pid, const std::string& path = "/usr/bin/innocent") {
    laptop.processes().exit(pid);
    laptop.processes().add({.pid = pid, .path = path});
  }

  std::size_t sleepsAsked() { return laptop.commandCount("/usr/bin/sudo -n /usr/bin/pmset sleepnow"); }
  bool sleepOff() const { return laptop.switches().sleepDisabled; }
  bool marker() const { return state.exists("hold"); }
  bool asleep() const { return laptop.switches().asleep; }

  // Sleep is off with its marker on disk, or on without; anything else is a lie.
  testing::AssertionResult holds(bool expected) {
    if (sleepOff() != expected) return testing::AssertionFailure() << "SleepDisabled is " << sleepOff();
    if (marker() != expected) return testing::AssertionFailure() << "the marker is there: " << marker();
    if (engine().holding != expected) return testing::AssertionFailure() << "holding is " << engine().holding.get();
    return testing::AssertionSuccess();
  }
};

}  // namespace tovi
