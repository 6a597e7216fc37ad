#include "observe/EnergySampler.h"

#include <algorithm>

#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace tovi {
namespace {

// Below this many seconds between two samples, counters are too coarse for a rate.
constexpr double kShortestInterval = 0.2;

// No process draws as much: a counter that claims it is broken.
constexpr double kImpossibleWatts = 500.0;

constexpr double kNanoPerUnit = 1e9;

struct Counters {
  Pid pid = 0;
  ProcessUsage usage;
};

struct Description {
  std::string name;
  std::optional<std::string> bundleID;
};

Description describe(const Machine& machine, const std::string& id) {
  if (!id.ends_with(".app")) return {id, std::nullopt};
  const std::string file = id.substr(id.rfind('/') + 1);
  const std::string name = file.substr(0, file.rfind('.'));
  // A tool may be called x.app, and has no path here.
  const auto bundle = id.starts_with('/') ? machine.workspace.bundle(id) : std::nullopt;
  if (!bundle) return {name, std::nullopt};
  return {bundle->displayName ? *bundle->displayName : bundle->name.value_or(name), bundle->identifier};
}

// The bundle of an executable, or the file name of one outside any bundle.
std::string_view idOf(const ProcessEntry& entry) {
  const std::string_view bundle = bundlePathOf(*entry.path);
  return bundle.empty() ? entry.name() : bundle;
}

}  // namespace

struct EnergySampler::State {
  std::vector<Counters> last;  // by rising pid, as the process table is
  std::optional<Seconds> lastTime;
  std::map<std::string, Description, std::less<>> described;  // kept for good: asking a bundle is slow
};

EnergySampler::EnergySampler(const Machine& machine) : machine_(machine), state_(std::make_unique<State>()) {}
EnergySampler::~EnergySampler() = default;

std::vector<AppUsage> EnergySampler::sample() {
  const Seconds now = machine_.clock.sinceBoot();
  const double elapsed = state_->lastTime ? (now - *state_->lastTime).count() : 0;
  const ProcessTable& table = machine_.processes.table();

  std::vector<Counters> counters;
  counters.reserve(table.entries().size());
  std::map<std::string, AppUsage, std::less<>> apps;
  auto old = state_->last.cbegin();

  for (const ProcessEntry& entry : table.entries()) {
    // The kernel's own work and other people's processes belong to no application that could be named.
    if (!entry.path) continue;
    const auto usage = machine_.processes.usage(entry.pid);
    if (!usage) continue;
    counters.push_back({entry.pid, *usage});
    if (!(elapsed > kShortestInterval)) continue;

    while (old != state_->last.cend() && old->pid < entry.pid) ++old;
    if (old == state_->last.cend() || old->pid != entry.pid) continue;
    const ProcessUsage& before = old->usage;
    if (usage->energyNanojoules < before.energyNanojoules || usage->cpuNanoseconds < before.cpuNanoseconds) continue;

    const double watts =
        static_cast<double>(usage->energyNanojoules - before.energyNanojoules) / kNanoPerUnit / elapsed;
    if (watts >= kImpossibleWatts) continue;

    const std::string_view id = idOf(entry);
    auto app = apps.find(id);
    if (app == apps.end()) {
      app = apps.emplace(std::string(id), AppUsage{}).first;
      app->second.system = AppUsage::isSystemPath(*entry.path);
    }
    app->second.watts += watts;
    app->second.cores += static_cast<double>(usage->cpuNanoseconds - before.cpuNanoseconds) / kNanoPerUnit / elapsed;
    app->second.pids.push_back(entry.pid);
  }

  state_->last = std::move(counters);
  state_->lastTime = now;

  std::vector<AppUsage> result;
  result.reserve(apps.size());
  for (auto& [id, app] : apps) {
    auto known = state_->described.find(id);
    if (known == state_->described.end()) known = state_->described.emplace(id, describe(machine_, id)).first;
    app.id = id;
    app.name = known->second.name;
    app.bundleID = known->second.bundleID;
    result.push_back(std::move(app));
  }
  std::ranges::stable_sort(result, std::ranges::greater{}, &AppUsage::watts);
  return result;
}

}  // namespace tovi
