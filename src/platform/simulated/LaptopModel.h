// The simulated laptop's hardware and system software: what its tools (pmset, sudo, tmutil, launchctl and so on)
// do to its switches, and what its own events do to them. It holds nothing itself; whoever holds the laptop's
// state (a folder, memory) lends it for the length of a call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/Commands.h"
#include "platform/Machine.h"
#include "platform/simulated/LaptopReport.h"
#include "platform/simulated/LaptopSwitches.h"

namespace tovi {

enum class LaptopEvent { change, thermal, willSleep, poweredOn, didWake };

class LaptopModel {
 public:
  // Where the tools work.
  struct Place {
    Files& files;
    const Surroundings& surroundings;
    Date now;
    // Makes a symbolic link at `path`, replacing what is there.
    std::function<bool(const std::string& target, const std::string& path)> link;
  };

  LaptopModel(LaptopReport& report, LaptopSwitches& switches, const Place& place)
      : report_(report), switches_(switches), place_(place) {}

  // Whether the tool at this path is one of the laptop's own; any other isn't known here.
  static bool plays(const std::string& path);

  // Plays one of them. It may change the switches, never the report.
  CommandResult run(const std::string& path, const std::vector<std::string>& arguments);

  // Answers the password dialog and, when granted, carries out the steps of one line of shell text with root's
  // rights: mkdir -p, install, visudo -cf, mv -f, ln -sf, rm -f, within the laptop's own folders for sudo rules and
  // tools, and its own tools. "/private/etc/sudoers.d" and "/usr/local/bin" stand for these wherever they lie. A rule
  // that arrives or leaves changes `privileged` in the report.
  ElevationResult elevate(const std::string& shellText);

  // What `sudo -n` lets pass without a password when the rule is in place, paths and arguments joined by blanks.
  static const std::vector<std::string>& passwordless();

  // The name by which `refuse` knows a command: the tool's name and the arguments, "sudo -n" left out.
  static std::string refusalName(const std::string& path, const std::vector<std::string>& arguments);

  // The words that a refused command says, after its name and a colon.
  static std::string refusalMessage(const std::string& name);

 private:
  LaptopReport& report_;
  LaptopSwitches& switches_;
  const Place& place_;

  CommandResult play(const std::string& path, const std::vector<std::string>& arguments, bool asRoot);
  CommandResult sudo(const std::vector<std::string>& arguments);
  CommandResult elevatedStep(const std::vector<std::string>& words);
  std::optional<std::string> systemPath(const std::string& path) const;
};

// What raises when one report follows another, in this order.
std::vector<LaptopEvent> eventsBetween(const LaptopReport& before, const LaptopReport& now);

// How far the laptop's own reaction to its reports has come. A wake is followed once, however many processes see it.
struct LaptopFollowed {
  LaptopLid lid = LaptopLid::open;
  std::int64_t poweredOn = 0;
  std::int64_t didWake = 0;

  friend bool operator==(const LaptopFollowed&, const LaptopFollowed&) = default;
};

LaptopFollowed followedBy(const LaptopReport& report);

// A wake ends sleep and lights the screen; an opened lid lights the screen.
void follow(const LaptopReport& now, LaptopFollowed& followed, LaptopSwitches& switches);

}  // namespace tovi
