#include "platform/simulated/FakeTools.h"

#include "platform/simulated/MemoryProcesses.h"

namespace tovi {

CommandResult FakeTools::run(const std::string& path, const std::vector<std::string>& arguments) {
  const auto at = tools_.find(path);
  if (at == tools_.end()) return {-1, "No such file or directory"};
  return at->second(arguments);
}

ElevationResult FakeTools::runElevated(const std::string&, const std::string&) {
  return {ElevationResult::Outcome::failed, "Nobody can be asked."};
}

std::optional<Pid> FakeTools::start(const std::string& path, const std::vector<std::string>& arguments) {
  if (!tools_.contains(path)) return std::nullopt;
  MemoryProcess process;
  process.parent = processes_.self();
  process.path = path;
  process.arguments = arguments;
  process.arguments.insert(process.arguments.begin(), path);
  const Pid pid = processes_.add(std::move(process));
  started_[pid] = {path, arguments};
  return pid;
}

int FakeTools::wait(Pid child) {
  const auto at = started_.find(child);
  if (at == started_.end()) return -1;
  const Started started = at->second;
  started_.erase(at);
  const int code = run(started.path, started.arguments).code;
  processes_.exit(child);
  return code;
}

}  // namespace tovi
