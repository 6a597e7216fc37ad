#include "platform/simulated/LaptopModel.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <span>

#include "platform/Files.h"
#include "platform/simulated/ShellLine.h"

namespace tovi {

namespace {

using Words = std::vector<std::string>;

constexpr const char* kWatchdogLabel = "com.norvane.tovi.watchdog";
constexpr int kUsage = 64;  // what tools answer to arguments that they don't know

std::string join(std::span<const std::string> words) { return fmt::format("{}", fmt::join(words, " ")); }

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::optional<int> wholeNumber(const std::string& text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// What a tool has before it: `words` are its arguments.
struct Scene {
  const LaptopReport& report;
  LaptopSwitches& switches;
  const LaptopModel::Place& place;
  const Words& words;
};

CommandResult done(std::string out = {}) { return {0, std::move(out)}; }
CommandResult failed(std::string out, int code = 1) { return {code, std::move(out)}; }

CommandResult setDisableSleep(Scene& scene) {
  scene.switches.sleepDisabled = scene.words[2] == "1";
  return done();
}

CommandResult setPowerMode(Scene& scene) {
  const std::string& source = scene.words[0];
  const std::string& key = scene.words[1];
  const auto value = wholeNumber(scene.words[2]);
  if (!value || *value < 0 || *value > (key == "powermode" ? 2 : 1)) return failed("pmset: invalid value", kUsage);
  const auto set = [&](LaptopSwitches::Modes& modes) {
    const auto at = modes.find(key);
    if (at == modes.end()) return false;
    at->second = *value;
    return true;
  };
  bool known = false;
  if (source != "-c") known |= set(scene.switches.batteryMode);
  if (source != "-b") known |= set(scene.switches.acMode);
  return known ? done() : failed(fmt::format("pmset: this laptop has no setting {}", key));
}

CommandResult showSettings(Scene& scene) {
  std::string out;
  const auto section = [&](const char* title, const LaptopSwitches::Modes& modes, int displaySleep) {
    out += fmt::format("{} Power:\n", title);
    for (const auto& [key, value] : modes) out += fmt::format(" {:<20} {}\n", key, value);
    out += fmt::format(" {:<20} {}\n {:<20} {}\n", "sleep", 1, "displaysleep", displaySleep);
  };
  section("Battery", scene.switches.batteryMode, 2);
  section("AC", scene.switches.acMode, 10);
  return done(out);
}

CommandResult planWake(Scene& scene) {
  const auto seconds = wholeNumber(scene.words[2]);
  if (!seconds || *seconds < 1) return failed("pmset: invalid number of seconds", kUsage);
  scene.switches.nextWake = unixSeconds(scene.place.now) + *seconds;
  return done();
}

CommandResult sleepNow(Scene& scene) {
  if (!scene.switches.sleepDisabled) {
    scene.switches.asleep = true;
    ++scene.switches.sleeps;
  }
  return done("Sleeping now...\n");
}

CommandResult displaySleepNow(Scene& scene) {
  scene.switches.displayAsleep = true;
  return done();
}

CommandResult wakeDisplay(Scene& scene) {
  scene.switches.displayAsleep = false;
  return done();
}

CommandResult setAutoBackup(Scene& scene) {
  scene.switches.autoBackup = scene.words[0] == "enable";
  return done();
}

CommandResult readAutoBackup(Scene& scene) { return done(scene.switches.autoBackup ? "1\n" : "0\n"); }

std::string domain(const Scene& scene) { return fmt::format("gui/{}", scene.place.surroundings.uid); }

bool namesLoadedWatchdog(const Scene& scene) {
  return scene.switches.watchdogLoaded && scene.words[1] == fmt::format("{}/{}", domain(scene), kWatchdogLabel);
}

CommandResult bootOut(Scene& scene) {
  if (!namesLoadedWatchdog(scene)) return failed("Boot-out failed: 3: No such process\n", 3);
  scene.switches.watchdogLoaded = false;
  return done();
}

CommandResult bootStrap(Scene& scene) {
  const auto plist = scene.place.files.read(scene.words[2]);
  const bool fits = scene.words[1] == domain(scene) && plist && plist->find(kWatchdogLabel) != std::string::npos;
  if (!fits || scene.switches.watchdogLoaded) return failed("Bootstrap failed: 5: Input/output error\n", 5);
  scene.switches.watchdogLoaded = true;
  return done();
}

CommandResult printAgent(Scene& scene) {
  if (!namesLoadedWatchdog(scene)) {
    return failed(fmt::format("Could not find service \"{}\" in domain for user gui: {}\n",
                              lastComponent(scene.words[1]), scene.place.surroundings.uid),
                  113);
  }
  return done(
      fmt::format("{} = {{\n\tactive count = 0\n\ttype = LaunchAgent\n\tstate = not running\n}}\n", scene.words[1]));
}

CommandResult shutDownSimulators(Scene&) { return done(); }

CommandResult openApplication(Scene& scene) {
  return failed(fmt::format("Unable to find application named '{}'\n", scene.words.empty() ? "" : scene.words.back()));
}

bool isRuleLine(std::string_view line) {
  if (line.empty() || line.starts_with('#')) return true;
  if (line.starts_with("Cmnd_Alias ")) return line.find(" = /") != std::string_view::npos;
  return line.find(" ALL=(root) NOPASSWD: ") != std::string_view::npos;
}

// Knows the three kinds of line that a rule of ours consists of, and asks for the last line's end as sudo does.
CommandResult checkRules(Files& files, const std::string& path) {
  const auto text = files.read(path);
  if (!text) return failed(fmt::format("visudo: unable to open {}: No such file or directory\n", path));
  bool good = text->empty() || text->ends_with('\n');
  for (std::size_t at = 0; good && at < text->size();) {
    const std::size_t end = text->find('\n', at);
    good = isRuleLine(std::string_view(*text).substr(at, end - at));
    at = end + 1;
  }
  return good ? done(fmt::format("{}: parsed OK\n", path)) : failed(fmt::format("{}: syntax error\n", path));
}

CommandResult visudo(Scene& scene) { return checkRules(scene.place.files, scene.words[1]); }

// One thing that a tool can do. Words stand for themselves, "*" for any one word, "a|b" for one of several, and a
// last "..." for any number of words.
struct Use {
  const char* path;
  const char* arguments;
  enum Rights { anybody, root } rights;
  CommandResult (*play)(Scene&);
};

constexpr Use kUses[] = {
    {"/usr/bin/pmset", "-a disablesleep 0|1", Use::root, setDisableSleep},
    {"/usr/bin/pmset", "-a|-b|-c lowpowermode|powermode *", Use::root, setPowerMode},
    {"/usr/bin/pmset", "relative wake *", Use::root, planWake},
    {"/usr/bin/pmset", "-g custom", Use::anybody, showSettings},
    {"/usr/bin/pmset", "sleepnow", Use::anybody, sleepNow},
    {"/usr/bin/pmset", "displaysleepnow", Use::anybody, displaySleepNow},
    {"/usr/bin/tmutil", "enable|disable", Use::root, setAutoBackup},
    {"/usr/bin/defaults", "read /Library/Preferences/com.apple.TimeMachine AutoBackup", Use::anybody, readAutoBackup},
    {"/usr/bin/caffeinate", "-u -t *", Use::anybody, wakeDisplay},
    {"/usr/bin/xcrun", "simctl shutdown all", Use::anybody, shutDownSimulators},
    {"/usr/bin/open", "...", Use::anybody, openApplication},
    {"/usr/sbin/visudo", "-cf *", Use::anybody, visudo},
    {"/bin/launchctl", "bootout *", Use::anybody, bootOut},
    {"/bin/launchctl", "bootstrap * *", Use::anybody, bootStrap},
    {"/bin/launchctl", "print *", Use::anybody, printAgent},
};
constexpr const char* kSudo = "/usr/bin/sudo";

bool fits(std::string_view choices, std::string_view word) {
  if (choices == "*") return true;
  for (std::size_t at = 0; at <= choices.size();) {
    const std::size_t end = std::min(choices.find('|', at), choices.size());
    if (choices.substr(at, end - at) == word) return true;
    at = end + 1;
  }
  return false;
}

bool fits(std::string_view form, const Words& words) {
  std::size_t next = 0;
  for (std::size_t at = 0; at < form.size();) {
    const std::size_t end = std::min(form.find(' ', at), form.size());
    const std::string_view choices = form.substr(at, end - at);
    if (choices == "...") return true;
    if (next == words.size() || !fits(choices, words[next])) return false;
    ++next;
    at = end + 1;
  }
  return next == words.size();
}

}  // namespace

bool LaptopModel::plays(const std::string& path) {
  return path == kSudo ||
         std::any_of(std::begin(kUses), std::end(kUses), [&](const Use& use) { return path == use.path; });
}

const std::vector<std::string>& LaptopModel::passwordless() {
  static const std::vector<std::string> commands = {
      "/usr/bin/pmset -a disablesleep 1",  "/usr/bin/pmset -a disablesleep 0", "/usr/bin/pmset -b powermode 0",
      "/usr/bin/pmset -b powermode 1",     "/usr/bin/pmset -b powermode 2",    "/usr/bin/pmset -b lowpowermode 0",
      "/usr/bin/pmset -b lowpowermode 1",  "/usr/bin/pmset sleepnow",          "/usr/bin/pmset relative wake 3600",
      "/usr/bin/pmset relative wake 1800", "/usr/bin/pmset relative wake 900", "/usr/bin/pmset relative wake 300",
      "/usr/bin/pmset relative wake 60",   "/usr/bin/tmutil disable",          "/usr/bin/tmutil enable",
  };
  return commands;
}

std::string LaptopModel::refusalName(const std::string& path, const std::vector<std::string>& arguments) {
  std::span<const std::string> rest = arguments;
  const bool throughSudo = path == kSudo && rest.size() > 1 && rest[0] == "-n";
  const std::string& tool = throughSudo ? rest[1] : path;
  if (throughSudo) rest = rest.subspan(2);
  std::string name = lastComponent(tool);
  for (const std::string& word : rest) name.append(" ").append(word);
  return name;
}

std::string LaptopModel::refusalMessage(const std::string& name) {
  return fmt::format("{}: the laptop refused this command\n", name.substr(0, name.find(' ')));
}

CommandResult LaptopModel::run(const std::string& path, const std::vector<std::string>& arguments) {
  return path == kSudo ? sudo(arguments) : play(path, arguments, false);
}

CommandResult LaptopModel::play(const std::string& path, const std::vector<std::string>& arguments, bool asRoot) {
  const std::string name = refusalName(path, arguments);
  if (report_.refuses(name)) return failed(refusalMessage(name));
  for (const Use& use : kUses) {
    if (path != use.path || !fits(use.arguments, arguments)) continue;
    if (use.rights == Use::root && !asRoot)
      return failed(fmt::format("{}: must be run as root\n", lastComponent(path)));
    Scene scene{report_, switches_, place_, arguments};
    return use.play(scene);
  }
  return failed(fmt::format("{}: unrecognized arguments: {}\n", lastComponent(path), join(arguments)), kUsage);
}

CommandResult LaptopModel::sudo(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2 || arguments[0] != "-n")
    return failed("sudo: a terminal is required to read the password\n");
  const bool asksOnly = arguments[1] == "-l";
  const std::span<const std::string> command = std::span(arguments).subspan(asksOnly ? 2 : 1);
  const std::string text = join(command);
  const auto& allowed = passwordless();
  if (!report_.privileged || std::find(allowed.begin(), allowed.end(), text) == allowed.end()) {
    return failed("sudo: a password is required\n");
  }
  if (asksOnly) return done(text + "\n");
  return play(command[0], Words(command.begin() + 1, command.end()), true);
}

std::optional<std::string> LaptopModel::systemPath(const std::string& path) const {
  if (path.find("/../") != std::string::npos || path.ends_with("/..")) return std::nullopt;
  const auto under = [&](const std::string& folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
  };
  const std::pair<std::string, const std::string&> folders[] = {
      {"/private/etc/sudoers.d", place_.surroundings.sudoersFolder}, {"/usr/local/bin", place_.surroundings.localBin}};
  for (const auto& [usual, here] : folders) {
    if (under(here)) return path;
    if (under(usual)) return here + path.substr(usual.size());
  }
  return std::nullopt;
}

CommandResult LaptopModel::elevatedStep(const std::vector<std::string>& words) {
  const Words arguments(words.begin() + 1, words.end());
  const std::string tool = lastComponent(words[0]);
  const std::string name = refusalName(words[0], arguments);
  if (report_.refuses(name)) return failed(refusalMessage(name));
  Files& files = place_.files;
  const auto problem = [&](const std::string& path, const char* what) {
    return failed(fmt::format("{}: {}: {}", tool, path, what));
  };
  const auto outside = [&](const std::string& path) { return problem(path, "Operation not permitted"); };
  const std::string rule = place_.surroundings.sudoersFolder + "/tovi";
  const auto steps = [&](const char* wanted, const char* form) { return tool == wanted && fits(form, arguments); };

  if (steps("mkdir", "-p *")) {
    const auto folder = systemPath(arguments[1]);
    if (!folder) return outside(arguments[1]);
    return files.makeFolders(*folder) ? done() : problem(*folder, "couldn't be made");
  }
  if (steps("install", "-m * -o * -g * * *")) {
    unsigned mode = 0;
    const std::string& octal = arguments[1];
    const auto [end, error] = std::from_chars(octal.data(), octal.data() + octal.size(), mode, 8);
    if (error != std::errc{} || end != octal.data() + octal.size()) return problem(octal, "invalid mode");
    const auto target = systemPath(arguments[7]);
    if (!target) return outside(arguments[7]);
    const auto bytes = files.read(arguments[6]);
    if (!bytes) return problem(arguments[6], "No such file or directory");
    // The mode may forbid writing, so it comes last; nothing reads a staging file meanwhile.
    const bool copied = (!files.exists(*target) || files.remove(*target)) && files.create(*target, 0600) &&
                        files.write(*target, *bytes, Files::Sync::yes) && files.setMode(*target, mode);
    return copied ? done() : problem(*target, "couldn't be written");
  }
  if (steps("visudo", "-cf *")) {
    const auto file = systemPath(arguments[1]);
    return file ? checkRules(files, *file) : outside(arguments[1]);
  }
  if (steps("mv", "-f * *")) {
    const auto from = systemPath(arguments[1]);
    const auto to = systemPath(arguments[2]);
    if (!from || !to) return outside(arguments[from ? 2 : 1]);
    if (!files.rename(*from, *to)) return problem(*from, "couldn't be moved");
    if (*to == rule) report_.privileged = true;
    return done();
  }
  if (steps("ln", "-sf * *")) {
    const auto path = systemPath(arguments[2]);
    if (!path) return outside(arguments[2]);
    return place_.link(arguments[1], *path) ? done() : problem(*path, "couldn't be linked");
  }
  if (steps("rm", "-f *")) {
    const auto path = systemPath(arguments[1]);
    if (!path) return outside(arguments[1]);
    files.remove(*path);  // a link whose target has gone doesn't "exist", so it is tried in any case
    if (files.exists(*path)) return problem(*path, "couldn't be removed");
    if (*path == rule) report_.privileged = false;
    return done();
  }
  if (plays(words[0]) && words[0] != kSudo) return play(words[0], arguments, true);
  return failed(fmt::format("{}: this laptop doesn't know the command", join(words)));
}

ElevationResult LaptopModel::elevate(const std::string& shellText) {
  using Outcome = ElevationResult::Outcome;
  if (report_.elevation == LaptopElevation::cancel) return {Outcome::cancelled, {}};
  if (report_.elevation == LaptopElevation::fail) {
    return {Outcome::failed, "The administrator user name or password was incorrect."};
  }
  const auto commands = splitShellLine(shellText);
  if (!commands) return {Outcome::failed, "The command couldn't be understood."};
  for (const auto& words : *commands) {
    const CommandResult result = elevatedStep(words);
    if (result.code == 0) continue;
    std::string message = result.out;
    while (message.ends_with('\n')) message.pop_back();
    return {Outcome::failed, message};
  }
  return {Outcome::done, {}};
}

std::vector<LaptopEvent> eventsBetween(const LaptopReport& before, const LaptopReport& now) {
  std::vector<LaptopEvent> events;
  if (before.lid != now.lid) events.push_back(LaptopEvent::change);
  if (before.thermal != now.thermal) events.push_back(LaptopEvent::thermal);
  if (before.events.willSleep < now.events.willSleep) events.push_back(LaptopEvent::willSleep);
  if (before.events.poweredOn < now.events.poweredOn) events.push_back(LaptopEvent::poweredOn);
  if (before.events.didWake < now.events.didWake) events.push_back(LaptopEvent::didWake);
  return events;
}

LaptopFollowed followedBy(const LaptopReport& report) {
  return {report.lid, report.events.poweredOn, report.events.didWake};
}

void follow(const LaptopReport& now, LaptopFollowed& followed, LaptopSwitches& switches) {
  const LaptopFollowed next = followedBy(now);
  const bool woke = next.poweredOn > followed.poweredOn || next.didWake > followed.didWake;
  if (woke) switches.asleep = false;
  if (woke || (next.lid == LaptopLid::open && followed.lid == LaptopLid::closed)) switches.displayAsleep = false;
  followed = next;
}

}  // namespace tovi
