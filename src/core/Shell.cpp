#include "core/Shell.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "core/Log.h"

namespace tovi {

namespace {
constexpr char kSudo[] = "/usr/bin/sudo";
constexpr char kPmset[] = "/usr/bin/pmset";
}  // namespace

CommandResult Shell::run(const std::string& path, const std::vector<std::string>& arguments) const {
  return commands_.run(path, arguments);
}

void Shell::spawn(const std::string& path, const std::vector<std::string>& arguments) const {
  commands_.spawn(path, arguments);
}

bool Shell::pmsetRoot(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all{"-n", kPmset};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const CommandResult result = run(kSudo, all);
  if (result.code != 0) {
    logLine(fmt::format("Tovi: pmset {} failed ({}): {}", fmt::join(arguments, " "), result.code, result.out));
  }
  return result.code == 0;
}

bool Shell::sudoAllows(const std::vector<std::string>& command) const {
  std::vector<std::string> all{"-n", "-l"};
  all.insert(all.end(), command.begin(), command.end());
  return run(kSudo, all).code == 0;
}

}  // namespace tovi
