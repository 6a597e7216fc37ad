#include "safety/Setup.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <pugixml.hpp>

#include "core/Log.h"
#include "core/Shell.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "observe/Sensors.h"
#include "platform/Files.h"
#include "platform/Machine.h"
#include "platform/Workspace.h"

namespace tovi {

namespace {

constexpr char kLabel[] = "com.norvane.tovi.watchdog";
constexpr char kScript[] = "watchdog.sh";
constexpr unsigned kScriptMode = 0755;
constexpr char kLaunchctl[] = "/bin/launchctl";
constexpr char kPmset[] = "/usr/bin/pmset";

// Where an application lies that cannot tell its own path.
constexpr char kUsualExecutable[] = "/Applications/Tovi.app/Contents/MacOS/Tovi";

// In single quotes, inside which a shell leaves everything alone but the single quote itself.
std::string quoted(std::string_view word) {
  std::string text = "'";
  for (const char c : word) {
    if (c == '\'') {
      text += "'\\''";
    } else {
      text += c;
    }
  }
  return text + "'";
}

// As it is if no shell would take any character of it for more than itself.
std::string shellWord(const std::string& word) {
  const bool plain = !word.empty() && std::ranges::all_of(word, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view{"/._-+,:@%"}.find(c) != std::string_view::npos;
  });
  return plain ? word : quoted(word);
}

std::string executableOf(const Surroundings& surroundings) {
  return surroundings.executable.empty() ? kUsualExecutable : surroundings.executable;
}

std::string domain(const Surroundings& surroundings) { return fmt::format("gui/{}", surroundings.uid); }
std::string service(const Surroundings& surroundings) { return fmt::format("{}/{}", domain(surroundings), kLabel); }
std::string rulePath(const Surroundings& surroundings) { return surroundings.sudoersFolder + "/tovi"; }
std::string linkPath(const Surroundings& surroundings) { return surroundings.localBin + "/tovi"; }

std::string cannotWrite(const std::string& path) { return fmt::format("Tovi couldn't write {}", path); }

struct TextWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

std::string launchAgentText(const std::string& scriptPath) {
  pugi::xml_document document;
  document.append_child(pugi::node_declaration).append_attribute("version") = "1.0";
  document.first_child().append_attribute("encoding") = "UTF-8";
  document.append_child(pugi::node_doctype)
      .set_value("plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"");
  pugi::xml_node list = document.append_child("plist");
  list.append_attribute("version") = "1.0";
  pugi::xml_node entries = list.append_child("dict");
  const auto add = [](pugi::xml_node& parent, const char* element, const std::string& text) {
    parent.append_child(element).text() = text.c_str();
  };
  add(entries, "key", "Label");
  add(entries, "string", kLabel);
  add(entries, "key", "ProgramArguments");
  pugi::xml_node arguments = entries.append_child("array");
  add(arguments, "string", "/bin/sh");
  add(arguments, "string", scriptPath);
  add(entries, "key", "StartInterval");
  add(entries, "integer", "60");  // seconds
  add(entries, "key", "RunAtLoad");
  entries.append_child("true");
  TextWriter writer;
  document.save(writer, "\t");
  return writer.text;
}

// Whether the rule really works is shown by using it. The harmless direction of the switch serves as proof, unless
// a hold stands: then sleep is switched off again at once, for a set-up must not end a session.
bool proveRule(const Machine& machine, const StateFiles& state) {
  const Shell shell(machine.commands);
  const bool holding = state.exists("hold") && Registry::sleepDisabled(machine) == true;
  const bool accepted = shell.run("/usr/bin/sudo", {"-n", kPmset, "-a", "disablesleep", "0"}).code == 0;
  if (accepted && holding) {
    shell.pmsetRoot({"-a", "disablesleep", "1"});
    // It may have ended while we looked, and nobody switches back what has no marker.
    if (!state.exists("hold")) shell.pmsetRoot({"-a", "disablesleep", "0"});
  }
  return accepted;
}

}  // namespace

Setup::Setup(const Machine& machine, const StateFiles& state) : machine_(machine), state_(state) {}

const std::vector<std::string>& Setup::commands() {
  static const std::vector<std::string> kCommands{
      "/usr/bin/pmset -a disablesleep 1",  "/usr/bin/pmset -a disablesleep 0", "/usr/bin/pmset -b powermode 0",
      "/usr/bin/pmset -b powermode 1",     "/usr/bin/pmset -b powermode 2",    "/usr/bin/pmset -b lowpowermode 0",
      "/usr/bin/pmset -b lowpowermode 1",  "/usr/bin/pmset sleepnow",          "/usr/bin/pmset relative wake 3600",
      "/usr/bin/pmset relative wake 1800", "/usr/bin/pmset relative wake 900", "/usr/bin/pmset relative wake 300",
      "/usr/bin/pmset relative wake 60",   "/usr/bin/tmutil disable",          "/usr/bin/tmutil enable",
  };
  return kCommands;
}

std::string Setup::sudoersText() const {
  return fmt::format(
      "# Installed by Tovi. Lets Tovi flip only these power switches without a password.\n"
      "Cmnd_Alias TOVI_PMSET = {}\n"
      "{} ALL=(root) NOPASSWD: TOVI_PMSET\n",
      fmt::join(commands(), ", "), machine_.surroundings.userName);
}

std::string Setup::watchdogScript() const {
  return fmt::format(R"(#!/bin/sh
# Tovi watchdog (written by Tovi; refreshed each launch).
D="$HOME/Library/Application Support/Tovi"
if [ -f "$D/alive" ]; then
  now=$(/bin/date +%s); beat=$({} "$D/alive")
  [ $((now - beat)) -lt 40 ] && exit 0
fi
EXE={}
if [ -x "$EXE" ]; then exec "$EXE" cli watchdog; fi
if [ -f "$D/hold" ]; then /usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0 && /bin/rm -f "$D/hold"; fi
exit 0)",
                     machine_.surroundings.statModified, quoted(executableOf(machine_.surroundings)));
}

std::string Setup::cliLinkCommand() const {
  const Surroundings& surroundings = machine_.surroundings;
  return fmt::format("/bin/mkdir -p {} && /bin/ln -sf {} {}", shellWord(surroundings.localBin),
                     quoted(executableOf(surroundings)), shellWord(linkPath(surroundings)));
}

std::string Setup::watchdogPlistPath() const {
  return fmt::format("{}/{}.plist", machine_.surroundings.launchAgents, kLabel);
}

bool Setup::permissionReady() const { return Shell(machine_.commands).sudoAllows({kPmset, "-a", "disablesleep", "1"}); }

bool Setup::setupReady() const { return watchdogReady() && permissionReady(); }

bool Setup::wakeReady() const {
  const Shell shell(machine_.commands);
  return shell.sudoAllows({kPmset, "relative", "wake", "900"}) && shell.sudoAllows({"/usr/bin/tmutil", "enable"});
}

bool Setup::cliInstalled() const {
  const Surroundings& surroundings = machine_.surroundings;
  const auto own = surroundings.executable.empty() ? std::nullopt : std::optional{surroundings.executable};
  return machine_.files.resolve(linkPath(surroundings)) == own;
}

bool Setup::watchdogReady() const { return machine_.files.exists(watchdogPlistPath()) && state_.exists(kScript); }

bool Setup::watchdogLoaded() const {
  return Shell(machine_.commands).run(kLaunchctl, {"print", service(machine_.surroundings)}).code == 0;
}

SetupError Setup::installWatchdog() const {
  const Surroundings& surroundings = machine_.surroundings;
  const std::string script = state_.path(kScript);
  if (!state_.writeAtomically(watchdogScript(), script, kScriptMode)) return cannotWrite(script);
  const std::string plist = watchdogPlistPath();
  if (!machine_.files.makeFolders(surroundings.launchAgents) ||
      !state_.writeAtomically(launchAgentText(script), plist)) {
    return cannotWrite(plist);
  }
  const Shell shell(machine_.commands);
  shell.run(kLaunchctl, {"bootout", service(surroundings)});  // fails if it wasn't loaded, as usual
  const CommandResult started = shell.run(kLaunchctl, {"bootstrap", domain(surroundings), plist});
  if (started.code == 0) return std::nullopt;
  // It may be loaded for all that: a bootout takes its time, and a second loader may have been faster. The words
  // alone don't tell, since "Could not find service" names the label too.
  const CommandResult found = shell.run(kLaunchctl, {"print", service(surroundings)});
  if (found.code == 0 && found.out.find(kLabel) != std::string::npos) return std::nullopt;
  return fmt::format("Couldn't start the watchdog: {}", text::trimmed(started.out));
}

void Setup::refreshWatchdogScript() const {
  // The application may have moved since the script was written.
  if (!watchdogReady()) return;
  const std::string script = watchdogScript();
  if (state_.read(kScript) != script) state_.writeAtomically(script, state_.path(kScript), kScriptMode);
}

SetupError Setup::runAsAdmin(const std::string& shellText, const std::string& prompt) const {
  const ElevationResult result = machine_.commands.runElevated(shellText, prompt);
  switch (result.outcome) {
    case ElevationResult::Outcome::done:
      return std::nullopt;
    case ElevationResult::Outcome::cancelled:
      return "Setup cancelled.";
    case ElevationResult::Outcome::failed:
      break;
  }
  return result.message.empty() ? "Setup failed." : result.message;
}

SetupError Setup::installSudoers() const {
  const Surroundings& surroundings = machine_.surroundings;
  const std::string draft = surroundings.temporaryFolder + "/tovi-sudoers";
  if (!state_.writeAtomically(sudoersText(), draft, 0600)) return cannotWrite(draft);
  const std::string staging = surroundings.sudoersFolder + "/.tovi.staging";
  // Checked before it is moved: one faulty file in the live folder breaks sudo for the whole machine.
  const std::vector<std::string> steps{
      fmt::format("/bin/mkdir -p {}", shellWord(surroundings.sudoersFolder)),
      fmt::format("/usr/bin/install -m 0440 -o root -g wheel {} {}", quoted(draft), shellWord(staging)),
      fmt::format("/usr/sbin/visudo -cf {}", shellWord(staging)),
      fmt::format("/bin/mv -f {} {}", shellWord(staging), shellWord(rulePath(surroundings))),
      cliLinkCommand(),
  };
  const SetupError refused = runAsAdmin(fmt::format("{}", fmt::join(steps, " && ")),
                                        "Tovi needs your password once to control sleep while the lid is closed.");
  machine_.files.remove(draft);
  if (refused) return refused;
  if (!proveRule(machine_, state_)) return "Installed, but sudo isn't accepting it yet. Try Set up again.";
  if (!wakeReady()) logLine("Tovi: sudoers installed but the wake commands aren't accepted");
  return std::nullopt;
}

SetupError Setup::run() const {
  if (!executableOf(machine_.surroundings).starts_with(machine_.workspace.applicationsFolder())) {
    return "Move Tovi to your Applications folder first, then open it from there.";
  }
  if (const SetupError failed = installWatchdog()) return failed;
  if (proveRule(machine_, state_) && wakeReady()) return std::nullopt;
  return installSudoers();
}

SetupError Setup::uninstall() const {
  const Surroundings& surroundings = machine_.surroundings;
  Shell(machine_.commands).run(kLaunchctl, {"bootout", service(surroundings)});
  machine_.files.remove(watchdogPlistPath());
  state_.remove(state_.path(kScript));
  std::vector<std::string> removals;
  // The folder of rules may be closed to us; then sudo's own answer shows that the rule is there.
  if (machine_.files.exists(rulePath(surroundings)) || permissionReady()) {
    removals.push_back(fmt::format("/bin/rm -f {}", shellWord(rulePath(surroundings))));
  }
  if (cliInstalled()) removals.push_back(fmt::format("/bin/rm -f {}", shellWord(linkPath(surroundings))));
  if (removals.empty()) return std::nullopt;
  return runAsAdmin(fmt::format("{}", fmt::join(removals, " && ")),
                    "Tovi needs your password to remove its sleep permission and the tovi command.");
}

}  // namespace tovi
