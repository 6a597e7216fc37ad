// Other programs on this computer.
#pragma once

#include <csignal>

#include "platform/Commands.h"

namespace tovi {

// What is started sees every signal at its default and none blocked, whatever this process chose for itself.
// There is one tool that this class plays: "/usr/bin/open -g -b com.norvane.Tovi" starts `executable` without
// arguments, on its own feet. Debian's program at that path is another one, so any other use of it is refused.
class LinuxCommands : public Commands {
 public:
  explicit LinuxCommands(std::string executable, std::string pkexec = "/usr/bin/pkexec");

  CommandResult run(const std::string& path, const std::vector<std::string>& arguments) override;
  void spawn(const std::string& path, const std::vector<std::string>& arguments) override;

  // Through polkit's pkexec, whose dialog has a wording of its own: `prompt` isn't shown.
  ElevationResult runElevated(const std::string& shellText, const std::string& prompt) override;

  // In the same process group, so that the keyboard's signals reach it too.
  std::optional<Pid> start(const std::string& path, const std::vector<std::string>& arguments) override;
  int wait(Pid child) override;  // -1 if it is no child

 private:
  CommandResult open(const std::vector<std::string>& arguments);

  std::string executable_;
  std::string pkexec_;
  sigset_t ignored_;  // when this was made
};

}  // namespace tovi
