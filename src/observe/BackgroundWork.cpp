#include "observe/BackgroundWork.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "core/Text.h"
#include "platform/Assertions.h"
#include "platform/Machine.h"
#include "platform/ProcessTable.h"
#include "platform/Processes.h"

namespace tovi {

namespace {

constexpr std::array<std::string_view, 4> kPreviewNames{"PreviewShellMac", "previewsd", "XCPreviewAgent",
                                                        "PreviewShell"};
constexpr std::array<std::string_view, 4> kTestNames{"xcodebuild", "xctest", "simctl", "XCTestAgent"};

// The simulator's own services run for as long as the person is logged in and must not be stopped.
constexpr std::array<std::string_view, 3> kServicePathParts{"CoreSimulatorService", "com.apple.CoreSimulator.",
                                                            "SimulatorTrampoline"};

template <std::size_t N>
bool isOneOf(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

bool isService(std::string_view path) {
  return std::ranges::any_of(kServicePathParts,
                             [&](std::string_view part) { return path.find(part) != std::string_view::npos; });
}

// A simulated device's processes: its root and all below. A process without a path hides what it started, since
// nothing can be said of it.
void gather(const ProcessTable& all, Pid root, std::set<Pid>& found) {
  std::vector<Pid> stack{root};
  while (!stack.empty()) {
    const Pid pid = stack.back();
    stack.pop_back();
    const ProcessEntry* entry = all.find(pid);
    if (entry == nullptr || !entry->path || !found.insert(pid).second) continue;
    const auto children = all.childrenOf(pid);
    stack.insert(stack.end(), children.begin(), children.end());
  }
}

bool playsAudio(const AssertionRecord& assertion) {
  return std::ranges::any_of(assertion.resourcesUsed,
                             [](const std::string& resource) { return resource.starts_with("audio-out"); }) ||
         (assertion.name && assertion.name->find(".context.preventuseridlesleep") != std::string::npos);
}

std::string nameOf(const Machine& machine, const ProcessTable& all, Pid pid) {
  if (const ProcessEntry* entry = all.find(pid); entry != nullptr && entry->path) return std::string{entry->name()};
  if (const auto path = machine.processes.path(pid)) return std::string{text::lastPathComponent(*path)};
  return fmt::format("pid {}", pid);
}

}  // namespace

BackgroundWork::Found BackgroundWork::scan(const Machine& machine, const ProcessTable& all) {
  Found found;
  std::set<Pid> simulators;
  for (const ProcessEntry& entry : all.entries()) {
    if (!entry.path) continue;
    const std::string_view name = entry.name();
    if (name == "launchd_sim") {
      ++found.simulatorDevices;
      gather(all, entry.pid, simulators);
    }
    if (isOneOf(kTestNames, name) || name.ends_with("-Runner")) found.testsRunning = true;
    if (entry.path->ends_with("/Developer/usr/bin/mcpbridge")) found.agentUsesXcode = true;
  }
  for (const ProcessEntry& entry : all.entries()) {
    if (!entry.path) continue;
    const std::string_view name = entry.name();
    if (isService(*entry.path)) {
      simulators.erase(entry.pid);
      continue;
    }
    if (name == "SimMetalHost" || entry.path->ends_with("/Simulator.app/Contents/MacOS/Simulator")) {
      simulators.insert(entry.pid);
    }
    if (isOneOf(kPreviewNames, name) && !simulators.contains(entry.pid)) found.previews.push_back(entry.pid);
  }
  found.simulators.assign(simulators.begin(), simulators.end());
  found.audio = audioHolders(machine, all);
  return found;
}

std::map<Pid, std::string> BackgroundWork::audioHolders(const Machine& machine, const ProcessTable& all) {
  std::map<Pid, std::string> holders;
  for (const AssertionRecord& assertion : machine.assertions.all()) {
    if (!playsAudio(assertion)) continue;
    const Pid pid = assertion.onBehalfOf.value_or(assertion.pid);
    if (pid < 2 || pid == machine.processes.self()) continue;
    std::string name = nameOf(machine, all, pid);
    if (name != "coreaudiod") holders[pid] = std::move(name);
  }
  return holders;
}

}  // namespace tovi
