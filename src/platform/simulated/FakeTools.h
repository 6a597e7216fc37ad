// Programs of the laptop in memory that aren't its own tools: a test says what each does.
#pragma once

#include <functional>
#include <map>
#include <unordered_map>

#include "platform/Commands.h"

namespace tovi {

class MemoryProcesses;

class FakeTools final : public Commands {
 public:
  using Tool = std::function<CommandResult(const std::vector<std::string>& arguments)>;

  explicit FakeTools(MemoryProcesses& processes) : processes_(processes) {}

  // From now on a program stands at this path. `tool` plays run() and spawn(), and its code is what wait() gives of a
  // started one.
  void set(const std::string& path, Tool tool) { tools_[path] = std::move(tool); }

  CommandResult run(const std::string& path, const std::vector<std::string>& arguments) override;
  void spawn(const std::string& path, const std::vector<std::string>& arguments) override {
    (void)run(path, arguments);
  }
  ElevationResult runElevated(const std::string& shellText, const std::string& prompt) override;  // always fails
  std::optional<Pid> start(const std::string& path, const std::vector<std::string>& arguments) override;
  int wait(Pid child) override;

 private:
  MemoryProcesses& processes_;
  std::map<std::string, Tool> tools_;
  struct Started {
    std::string path;
    std::vector<std::string> arguments;
  };
  std::unordered_map<Pid, Started> started_;
};

}  // namespace tovi
