#include "platform/simulated/LaptopCommands.h"

#include "platform/simulated/LaptopStore.h"

namespace tovi {

std::optional<CommandResult> LaptopCommands::own(const std::string& path, const std::vector<std::string>& arguments) {
  const std::string name = LaptopModel::refusalName(path, arguments);
  if (!LaptopModel::plays(path)) {
    if (!store_.report()->refuses(name)) return std::nullopt;
    return CommandResult{1, LaptopModel::refusalMessage(name)};
  }
  CommandResult result;
  const bool stored = store_.change(name, [&](LaptopReport& report, LaptopSwitches& switches, const auto& place) {
    result = LaptopModel(report, switches, place).run(path, arguments);
  });
  if (!stored) result = {1, "The laptop couldn't store the change.\n"};
  return result;
}

CommandResult LaptopCommands::run(const std::string& path, const std::vector<std::string>& arguments) {
  auto result = own(path, arguments);
  if (!result) result = others_.run(path, arguments);
  store_.logCommand(result->code, path, arguments);
  return *result;
}

void LaptopCommands::spawn(const std::string& path, const std::vector<std::string>& arguments) {
  const auto result = own(path, arguments);
  if (!result) others_.spawn(path, arguments);
  // Nobody waits for a spawned program, so its status is that of a good start.
  store_.logCommand(result ? result->code : 0, path, arguments);
}

ElevationResult LaptopCommands::runElevated(const std::string& shellText, const std::string& prompt) {
  ElevationResult result;
  const bool stored = store_.change("elevated", [&](LaptopReport& report, LaptopSwitches& switches, const auto& place) {
    result = LaptopModel(report, switches, place).elevate(shellText);
  });
  if (!stored) result = {ElevationResult::Outcome::failed, "The laptop couldn't store the change."};
  store_.logCommand(result.outcome == ElevationResult::Outcome::done ? 0 : 1, "elevated", {shellText, prompt});
  return result;
}

std::optional<Pid> LaptopCommands::start(const std::string& path, const std::vector<std::string>& arguments) {
  return others_.start(path, arguments);
}

int LaptopCommands::wait(Pid child) { return others_.wait(child); }

}  // namespace tovi
