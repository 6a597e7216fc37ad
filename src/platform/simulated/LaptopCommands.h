// Commands on the simulated laptop: its own tools are played, all others are handed on; what ran is written down.
#pragma once

#include "platform/Commands.h"

namespace tovi {

class LaptopStore;

class LaptopCommands final : public Commands {
 public:
  // `others` runs what isn't a tool of the laptop.
  LaptopCommands(LaptopStore& store, Commands& others) : store_(store), others_(others) {}

  CommandResult run(const std::string& path, const std::vector<std::string>& arguments) override;
  void spawn(const std::string& path, const std::vector<std::string>& arguments) override;
  ElevationResult runElevated(const std::string& shellText, const std::string& prompt) override;

  // The person's own command: neither refused nor written down.
  std::optional<Pid> start(const std::string& path, const std::vector<std::string>& arguments) override;
  int wait(Pid child) override;

 private:
  LaptopStore& store_;
  Commands& others_;

  // The answer of the laptop itself: a tool's, or that the command is refused. Absent for all other commands.
  std::optional<CommandResult> own(const std::string& path, const std::vector<std::string>& arguments);
};

}  // namespace tovi
