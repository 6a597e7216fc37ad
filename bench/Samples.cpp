#include "Samples.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Figures.h"

namespace tovi::bench {

namespace {

namespace fs = std::filesystem;

// Old processes are read again by turns; each has had its turn after so many samples.
constexpr int kTurns = 16;

// Processor time of one ps, in seconds; nothing where there is none.
std::optional<double> psSeconds() {
  const double seconds = medianOf(9, [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return run({"ps", "-eo", "pid,ppid,lstart,args"}, {"PATH=/usr/bin:/bin"}).cpuSeconds;
  });
  if (seconds <= 0) return std::nullopt;
  return seconds;
}

// Mean processor time of one call, in seconds. Not in one go: in life, other work has had the caches in the meantime.
double meanCpuSeconds(int times, const std::function<void()>& call) {
  double spent = 0;
  for (int i = 0; i < times; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double before = ownCpuSeconds();
    call();
    spent += ownCpuSeconds() - before;
  }
  return spent / times;
}

// A row for work over so many processes, as a ratio to one ps over the same.
void compareWithPs(Table& table, const std::string& name, std::size_t processes, double goal,
                   const std::function<void()>& call) {
  const auto what = fmt::format("{} over {} processes / one ps", name, processes);
  for (int i = 0; i < 24 && !aboutSoMany(processes); ++i) std::this_thread::sleep_for(std::chrono::seconds(5));
  if (!aboutSoMany(processes)) return table.addMissing(what, fmt::format("{} processes run", processCount()));
  for (int i = 0; i < 2 * kTurns; ++i) call();
  const double once = meanCpuSeconds(4 * kTurns, call);
  const auto ps = psSeconds();
  if (!ps) return table.addMissing(what, "ps doesn't run here");
  say(fmt::format("  {}: {:.2f} ms, one ps {:.1f} ms, {} processes", name, once * 1e3, *ps * 1e3, processCount()));
  table.add(what, once / *ps, "", goal, 3);
}

}  // namespace

void AgentSample::measure(Table& table, std::size_t processes, double goal) {
  compareWithPs(table, "agent sample", processes, goal, [&] { watcher_.sample({}, true, {}); });
}

ClosedPass::ClosedPass() : laptop_((stage_.root() / "laptop").string(), stage_.surroundings()) {
  for (int i = 0; i < kApplications; ++i) {
    const fs::path bundle = fs::path(stage_.home()) / "Applications" / fmt::format("App{}.app", i);
    const fs::path program = bundle / "Contents/MacOS/App";
    fs::create_directories(program.parent_path());
    fs::copy_file("/bin/sleep", program);
    // What has no identifier is slowed, not paused.
    if (i % 2 == 0) {
      std::ofstream(bundle / "Contents/Info.plist")
          << "<plist><dict><key>CFBundleIdentifier</key><string>com.example.app" << i << "</string></dict></plist>";
    }
    apps_.push_back(std::make_unique<Resident>(std::vector<std::string>{program.string(), "3600"}, Environment{}));
  }
  engine_.emplace(laptop_.machine(), false);
  Config config = engine_->config;
  config.preset = Preset::longest;
  engine_->apply(std::move(config), true);
}

void ClosedPass::measure(Table& table, std::size_t processes, double goal) {
  compareWithPs(table, "closed-lid pass", processes, goal, [&] { engine_->applyClosedTargets({}, {}); });
  if (engine_->touched->size() != kApplications) {
    table.addMissing("closed-lid pass", fmt::format("{} applications were touched", engine_->touched->size()));
  }
}

}  // namespace tovi::bench
