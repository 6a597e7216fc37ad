// Running the system's tools.
#pragma once

#include <string>
#include <vector>

#include "platform/Commands.h"

namespace tovi {

class Shell {
 public:
  explicit Shell(Commands& commands) : commands_(commands) {}

  // Starts the executable directly, with no shell, and waits for its end; see CommandResult.
  CommandResult run(const std::string& path, const std::vector<std::string>& arguments) const;

  // Starts it with both output streams on the null device and doesn't wait.
  void spawn(const std::string& path, const std::vector<std::string>& arguments) const;

  // Runs pmset as root by the passwordless rule; a failure is logged. True on exit status 0.
  bool pmsetRoot(const std::vector<std::string>& arguments) const;

  // Whether sudo would run a command without a password, asked without running it.
  bool sudoAllows(const std::vector<std::string>& command) const;

 private:
  Commands& commands_;
};

}  // namespace tovi
