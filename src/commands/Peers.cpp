#include "commands/Peers.h"

#include "commands/CLI.h"
#include "core/StateFiles.h"
#include "core/Text.h"
#include "observe/AppUsage.h"
#include "platform/Machine.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

constexpr char kLock[] = "app.lock";

constexpr Seconds kPatience{1};  // somebody's look at the lock is over at once, unless the processor is taken away

}  // namespace

std::unique_ptr<Files::Lock> Peers::takeLock(const Machine& machine, const StateFiles& state) {
  return machine.files.tryLock(state.path(kLock), kPatience);
}

bool Peers::applicationRuns(const Machine& machine, const StateFiles& state) {
  return machine.files.tryLock(state.path(kLock)) == nullptr;
}

std::string Peers::bundlePath(const std::string& executable) {
  const std::string_view bundle = bundlePathOf(executable);
  return bundle.empty() ? executable : std::string{bundle};
}

std::vector<Peers::Peer> Peers::holders(const Machine& machine) {
  const std::string_view name = text::lastPathComponent(machine.surroundings.executable);
  std::vector<Peer> peers;
  for (const ProcessEntry& entry : machine.processes.table().entries()) {
    if (entry.name() != name || entry.pid == machine.processes.self()) continue;
    if (CLI::shouldRun(machine.processes.arguments(entry.pid))) continue;
    peers.push_back({entry.pid, bundlePath(*entry.path)});
  }
  if (peers.empty()) peers.emplace_back();
  return peers;
}

}  // namespace tovi
