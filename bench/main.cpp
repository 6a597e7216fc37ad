// Measures what Tovi costs, on this machine, with real processes and the program as people run it, and prints one
// table. It starts thousands of sleeping processes and ends them again; the home folder is a temporary one.
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Children.h"
#include "Table.h"
#include "core/StateFiles.h"
#include "engine/Engine.h"
#include "observe/AgentWatcher.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/simulated/FolderLaptop.h"
#include "platform/simulated/MemoryLaptop.h"
#include "safety/Setup.h"

namespace tovi::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kFew = 300;
constexpr std::size_t kMany = 3000;
constexpr double kTickSeconds = 2;
// Younger processes are read again at every sample, older ones by turns; each has had its turn after so many samples.
constexpr auto kOld = std::chrono::seconds(61);
constexpr int kTurns = 16;

void say(const std::string& line) { std::fputs((line + "\n").c_str(), stderr); }

double secondsSince(Clock::time_point begin) { return std::chrono::duration<double>(Clock::now() - begin).count(); }

double ownCpuSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
  if (values.empty()) return -1;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double medianOf(int times, const std::function<double()>& measure) {
  std::vector<double> values;
  for (int i = 0; i < times; ++i) values.push_back(measure());
  return median(std::move(values));
}

// Whether nobody else has filled the process table meanwhile; what a computer runs anyway is beside ours.
bool aboutSoMany(std::size_t processes) {
  const auto count = processCount();
  return count >= processes && count < processes + 200;
}

// A home, a runtime folder and a simulated laptop to try things on.
class Stage {
 public:
  Stage() {
    std::string pattern = (fs::temp_directory_path() / "tovi-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    root_ = pattern;
    for (const char* folder : {"home", "run", "tmp", "laptop"}) fs::create_directory(root_ / folder);
    fs::permissions(root_ / "run", fs::perms::owner_all);
    std::ofstream(root_ / "laptop/laptop.json")
        << "{\"applicationsFolder\": \"" << program().parent_path().string() << "/\"}\n";
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

  static fs::path program() { return TOVI_PROGRAM; }
  static std::string tool() { return (program().parent_path() / "tovi").string(); }
  fs::path root() const { return root_; }
  std::string home() const { return (root_ / "home").string(); }

  Environment environment() const {
    return {"HOME=" + home(),
            "TMPDIR=" + (root_ / "tmp").string(),
            "XDG_RUNTIME_DIR=" + (root_ / "run").string(),
            "TOVI_MACHINE=" + (root_ / "laptop").string(),
            "PATH=/usr/local/bin:/usr/bin:/bin",
            "LC_ALL=C.UTF-8"};
  }

 private:
  fs::path root_;
};

Surroundings surroundings(const Stage& stage) {
  Surroundings result;
  result.home = stage.home();
  result.stateFolder = stage.home() + "/Library/Application Support/Tovi";
  result.temporaryFolder = (stage.root() / "tmp").string();
  result.uid = ::getuid();
  return result;
}

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

// One look for agents.
class AgentSample {
 public:
  explicit AgentSample(const Stage& stage)
      : machine_(surroundings(stage)), view_(machine_.machine()), watcher_(view_) {}

  void measure(Table& table, std::size_t processes, double goal) {
    compareWithPs(table, "agent sample", processes, goal, [&] { watcher_.sample({}, true, {}); });
  }

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

  ClosedPass() : laptop_((stage_.root() / "laptop").string(), surroundings(stage_)) {
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
  ~ClosedPass() { engine_->restoreApps(); }

  void measure(Table& table, std::size_t processes, double goal) {
    compareWithPs(table, "closed-lid pass", processes, goal, [&] { engine_->applyClosedTargets({}, {}); });
    if (engine_->touched->size() != kApplications) {
      table.addMissing("closed-lid pass", fmt::format("{} applications were touched", engine_->touched->size()));
    }
  }

 private:
  Stage stage_;
  FolderLaptop laptop_;
  std::vector<std::unique_ptr<Resident>> apps_;
  std::optional<Engine> engine_;
};

bool answers(const Stage& stage) {
  for (int i = 0; i < 100; ++i) {
    if (run({Stage::tool(), "config"}, stage.environment()).status == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

void measureIdle(Table& table, const Resident& app, std::chrono::seconds span) {
  const auto begin = Clock::now();
  const double cpu = app.cpuSeconds();
  const long wakeUps = app.wakeUps();
  std::this_thread::sleep_for(span);
  const double seconds = secondsSince(begin);
  if (!aboutSoMany(kFew)) say(fmt::format("  not idle: {} processes run", processCount()));
  table.add(fmt::format("idle application, processor over {:.0f} s, {} processes", seconds, kFew),
            (app.cpuSeconds() - cpu) / seconds * 100, "% of a core", 0.1, 3);
  table.add("idle application, wake-ups per tick",
            static_cast<double>(app.wakeUps() - wakeUps) / (seconds / kTickSeconds), "", 1.05, 2);
  table.add("idle application, anonymous memory", static_cast<double>(app.status("RssAnon")) / 1024, "MiB", 3, 2);
  table.add("idle application, resident memory", static_cast<double>(app.status("VmRSS")) / 1024, "MiB", 16, 2);
}

// The server that an agent starts: from its start to the first answer, and a call that goes to the application.
void measureMcp(Table& table, const Environment& environment) {
  const std::vector<std::string> words = {Stage::tool(), "mcp"};
  const std::string hello =
      R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{}}})";
  const std::string call =
      R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"tovi_get_config","arguments":{}}})";
  bool answered = true;
  const double first = medianOf(50, [&] {
    const auto begin = Clock::now();
    Conversation server(words, environment);
    answered = answered && server.ask(hello).find("serverInfo") != std::string::npos;
    return secondsSince(begin);
  });
  Conversation server(words, environment);
  server.ask(hello);
  const double called = medianOf(100, [&] {
    const auto begin = Clock::now();
    answered = answered && server.ask(call).find("config") != std::string::npos;
    return secondsSince(begin);
  });
  if (!answered) return table.addMissing("tovi mcp", "it didn't answer");
  table.add("tovi mcp, from start to the first answer", first * 1e3, "ms", 20, 2);
  table.add("tovi mcp, one call of tovi_get_config", called * 1e3, "ms", 60, 2);
  table.add("tovi mcp, anonymous memory", static_cast<double>(statusOf(server.pid(), "RssAnon")) / 1024, "MiB", 2, 2);
}

// An ordinary working life: an agent that works half of each hour, a lid that is closed at night, forty other
// processes. Nothing if the engine didn't do its work.
std::optional<double> virtualDaysPerSecond(int days) {
  MemoryLaptop laptop;
  const StateFiles state(laptop.machine());
  if (Setup(laptop.machine(), state).run()) return std::nullopt;
  const auto add = [&](const std::string& path, double watts, double cores) {
    MemoryProcess process;
    process.path = path;
    process.watts = watts;
    process.cores = cores;
    return laptop.processes().add(process);
  };
  for (int i = 0; i < 40; ++i) add(fmt::format("/usr/bin/tool{}", i), 0.01, 0.005);
  const Pid agent = add("/usr/bin/claude", 2, 0.5);
  Engine engine(laptop.machine(), false);
  const auto begin = Clock::now();
  for (int hour = 0; hour < 24 * days; ++hour) {
    laptop.edit([&](LaptopReport& report) { report.lid = hour % 24 < 8 ? LaptopLid::closed : LaptopLid::open; });
    laptop.processes().setRates(agent, 2, 0.5);
    laptop.advance(1800);
    if (!laptop.switches().sleepDisabled) return std::nullopt;
    laptop.processes().setRates(agent, 0, 0);
    laptop.advance(1800);
    if (laptop.switches().sleepDisabled) return std::nullopt;
  }
  return days / secondsSince(begin);
}

int measureAll(bool quick) {
  Table table;
  Stage stage;
  const auto environment = stage.environment();
  if (run({Stage::tool(), "setup"}, environment).status != 0) {
    say("tovi setup failed on the simulated laptop");
    return 1;
  }
  {
    Sleepers sleepers;
    AgentSample sample(stage);
    Resident app({Stage::program().string()}, environment);
    if (!answers(stage)) {
      say("the application doesn't answer");
      return 1;
    }
    if (!sleepers.fillUpTo(kFew)) return 1;
    say(fmt::format("Letting {} processes grow old (a minute)", kFew));
    std::this_thread::sleep_for(kOld);
    sample.measure(table, kFew, 0.15);
    ClosedPass().measure(table, kFew, 0.5);

    const auto span = quick ? std::chrono::seconds(30) : std::chrono::seconds(300);
    say(fmt::format("Watching the idle application ({} s)", span.count()));
    measureIdle(table, app, span);

    say("Timing the command line tool");
    table.add("tovi help, from start to exit",
              medianOf(200,
                       [&] {
                         return run({Stage::tool(), "help"}, environment).wallSeconds;
                       }) *
                  1e3,
              "ms", 5, 2);
    table.add("tovi config, from start to exit",
              medianOf(100,
                       [&] {
                         return run({Stage::tool(), "config"}, environment).wallSeconds;
                       }) *
                  1e3,
              "ms", 50, 2);

    measureMcp(table, environment);

    if (!sleepers.fillUpTo(kMany)) {
      table.addMissing(fmt::format("agent sample over {} processes / one ps", kMany), "no more processes allowed here");
    } else {
      say(fmt::format("Letting {} processes grow old (a minute)", kMany));
      std::this_thread::sleep_for(kOld);
      sample.measure(table, kMany, 0.10);
      ClosedPass().measure(table, kMany, 0.5);
    }
  }
  say("Living virtual days");
  const std::string virtualLife = "an engine's life in virtual time";
  if (const auto days = virtualDaysPerSecond(quick ? 2 : 10))
    table.add(virtualLife, *days, "days/s", 1, 1, true);
  else
    table.addMissing(virtualLife, "the engine didn't follow its agent");

  std::fputs(table.text().c_str(), stdout);
  return table.allMet() ? 0 : 1;
}

}  // namespace
}  // namespace tovi::bench

int main(int argc, char** argv) {
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (argc > 2 || (argc == 2 && option != "--quick")) {
    std::fputs("tovi_bench [--quick]\n", stderr);
    return 2;
  }
  return tovi::bench::measureAll(option == "--quick");
}
