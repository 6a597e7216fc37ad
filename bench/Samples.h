// What one look at all processes costs, as a ratio to one ps over the same, measured side by side.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Children.h"
#include "Stage.h"
#include "Table.h"
#include "engine/Engine.h"
#include "observe/AgentWatcher.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/simulated/FolderLaptop.h"

namespace tovi::bench {

// One look for agents.
class AgentSample {
 public:
  explicit AgentSample(const Stage& stage)
      : machine_(stage.surroundings()), view_(machine_.machine()), watcher_(view_) {}

  void measure(Table& table, std::size_t processes, double goal);

 private:
  LinuxMachine machine_;
  Machine view_;
  AgentWatcher watcher_;
};

// One pass over all processes with the lid closed, as it comes every thirty seconds: half of the applications are
// paused already, half of them slowed.
class ClosedPass {
 public:
  static constexpr int kApplications = 20;

  ClosedPass();
  ~ClosedPass() { engine_->restoreApps(); }

  void measure(Table& table, std::size_t processes, double goal);

 private:
  Stage stage_;
  FolderLaptop laptop_;
  std::vector<std::unique_ptr<Resident>> apps_;
  std::optional<Engine> engine_;
};

}  // namespace tovi::bench
