// The one-time set-up: the narrow rule that lets a few power switches be flipped without a password, the link of
// the command line tool, and the watchdog; and their removal. Nothing else ever runs with privileges.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovi {

struct Machine;
class StateFiles;

// Absent: it worked. Otherwise the sentence for the person.
using SetupError = std::optional<std::string>;

class Setup {
 public:
  Setup(const Machine& machine, const StateFiles& state);

  static const std::vector<std::string>& commands();  // those that the rule allows, in full
  std::string sudoersText() const;
  std::string watchdogScript() const;
  std::string cliLinkCommand() const;
  std::string watchdogPlistPath() const;

  bool permissionReady() const;  // sudo would switch sleep off without a password
  bool setupReady() const;       // the watchdog is installed and the permission stands
  bool wakeReady() const;        // wake and backup commands are covered too
  bool cliInstalled() const;
  bool watchdogReady() const;   // installed
  bool watchdogLoaded() const;  // and loaded, by launchctl

  SetupError installWatchdog() const;
  void refreshWatchdogScript() const;
  SetupError installSudoers() const;
  SetupError uninstall() const;

  // Everything in order: the place of the application, the watchdog, and the permission if it is missing. The
  // permission is proved by switching sleep on; a hold in force is switched off again at once.
  SetupError run() const;

 private:
  SetupError runAsAdmin(const std::string& shellText, const std::string& prompt) const;

  const Machine& machine_;
  const StateFiles& state_;
};

}  // namespace tovi
