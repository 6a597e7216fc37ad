// What the closed lid does to real applications: bundles below the stage's home, with real processes in them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <random>
#include <thread>

#include "e2e/Stage.h"

namespace tovi::e2e {
namespace {

namespace fs = std::filesystem;

// The laptop tells of its lid within half a second; what is done then takes a moment under sanitizers.
constexpr auto kAtOnce = 3s;

// What Tovi may change about a process: whether it runs, and for each thread its processors and its I/O class.
struct Condition {
  bool stopped = false;
  std::map<std::string, std::pair<std::string, int>> threads = {};

  bool operator==(const Condition&) const = default;
};

Condition conditionOf(pid_t pid) {
  constexpr int kOneProcess = 1;
  Condition found;
  const fs::path folder = "/proc/" + std::to_string(pid);
  const auto stat = readFile(folder / "stat");
  if (const auto at = stat.rfind(')'); at != std::string::npos) found.stopped = stat.substr(at + 2, 1) == "T";
  for (const auto& thread : fs::directory_iterator(folder / "task")) {
    const auto status = readFile(thread.path() / "status");
    constexpr std::string_view kKey = "Cpus_allowed_list:";
    const auto at = status.find(kKey) + kKey.size();
    const auto id = thread.path().filename().string();
    const auto io = static_cast<int>(::syscall(SYS_ioprio_get, kOneProcess, std::stoi(id)));
    found.threads[id] = {status.substr(at, status.find('\n', at) - at), io};
  }
  return found;
}

// Nothing is left over when a shell that started something is ended.
const std::string kDiesWithParent = "setpriv --pdeathsig KILL ";

constexpr int kIdleIo = 3;
int ioClass(int priority) { return priority >> 13; }

// An application with one process, or a further process of it.
class App {
 public:
  App(Stage& stage, Process process) : stage_(stage), process_(std::move(process)), before_(conditionOf(pid())) {}

  pid_t pid() const { return process_.pid(); }
  bool paused() const { return conditionOf(pid()).stopped; }
  bool untouched() const { return conditionOf(pid()) == before_; }
  bool slowed() const {
    const auto now = conditionOf(pid());
    if (now.stopped) return false;
    for (const auto& [thread, facts] : now.threads) {
      if (ioClass(facts.second) != kIdleIo) return false;
      // With one processor there is nothing to confine it to.
      if (::sysconf(_SC_NPROCESSORS_ONLN) > 1 && facts.first == before_.threads.at(thread).first) return false;
    }
    return true;
  }
  bool recorded() const {
    const auto journal = Json::parse(readFile(stage_.state() / "touched.json"), nullptr, false);
    for (const auto& entry : journal)
      if (entry.value("pid", 0) == pid()) return true;
    return false;
  }

 private:
  Stage& stage_;
  Process process_;
  Condition before_;
};

class EndToEndLid : public ::testing::Test {
 protected:
  fs::path bundle(const std::string& name) const { return stage.root() / "home/Applications" / (name + ".app"); }

  // Copies a program into a bundle, which says of itself what it is.
  fs::path install(const std::string& name, const std::string& identifier, const std::string& program,
                   const std::string& inside = "") {
    const auto executable = bundle(name) / "Contents" / (inside.empty() ? "MacOS/" + name : inside);
    fs::create_directories(executable.parent_path());
    fs::copy_file(fs::canonical(program), executable, fs::copy_options::skip_existing);
    writeFile(bundle(name) / "Contents/Info.plist",
              "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>" + name +
                  "</string><key>CFBundleIdentifier</key><string>" + identifier + "</string></dict></plist>");
    return executable;
  }

  App start(const std::string& name, const std::string& identifier, const std::string& inside = "") {
    const auto executable = install(name, identifier, "/bin/sleep", inside);
    Process process = stage.start(executable.string(), {"600"});
    EXPECT_TRUE(eventually(5s, [&] {
      std::error_code gone;
      return fs::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe", gone) == executable;
    }));
    return App(stage, std::move(process));
  }

  void close() { stage.laptop({{"lid", "closed"}}); }
  void open() { stage.laptop({{"lid", "open"}}); }
  void hold() { ASSERT_EQ(stage.tovi({"hold"}).status, 0); }
  bool nothingRecorded() const { return !stage.hasState("touched.json"); }

  Stage stage;
};

TEST_F(EndToEndLid, PresetsAndRulesDecideAtOnceAndOpeningGivesEverythingBack) {
  App exporter = start("Exporter", "com.example.exporter");
  App helper =
      start("Exporter", "com.example.exporter", "Frameworks/Exporter Helper.app/Contents/MacOS/Exporter Helper");
  App docker = start("Docker", "com.docker.docker");
  App player = start("Spotify", "com.spotify.client");
  Process app = stage.startApp();
  ASSERT_EQ(stage.tovi({"preset", "max_battery"}).status, 0);
  hold();
  EXPECT_TRUE(exporter.untouched() && docker.untouched()) << "the lid is open";

  const auto allUntouched = [&] {
    return exporter.untouched() && helper.untouched() && docker.untouched() && player.untouched() && nothingRecorded();
  };
  close();
  EXPECT_TRUE(eventually(kAtOnce, [&] { return exporter.paused() && helper.paused() && docker.slowed(); }));
  EXPECT_TRUE(player.untouched());
  EXPECT_TRUE(exporter.recorded() && helper.recorded() && docker.recorded() && !player.recorded());

  ASSERT_EQ(stage.tovi({"preset", "balanced"}).status, 0);
  EXPECT_TRUE(
      eventually(kAtOnce, [&] { return exporter.slowed() && helper.slowed() && docker.slowed() && player.slowed(); }));

  ASSERT_EQ(stage.tovi({"preset", "full_speed"}).status, 0);
  EXPECT_TRUE(eventually(kAtOnce, allUntouched));

  ASSERT_EQ(stage.tovi({"rule", "Spotify", "pause"}).status, 0);
  EXPECT_TRUE(eventually(kAtOnce, [&] { return player.paused(); })) << "a rule beats the preset";
  EXPECT_TRUE(exporter.untouched());

  ASSERT_EQ(stage.tovi({"preset", "max_battery"}).status, 0);
  ASSERT_EQ(stage.tovi({"rule", "Exporter", "leave"}).status, 0);
  EXPECT_TRUE(eventually(kAtOnce, [&] { return docker.slowed() && player.paused() && exporter.untouched(); }));

  open();
  EXPECT_TRUE(eventually(1500ms, allUntouched)) << "within a second of the lid's being seen";
  EXPECT_TRUE(stage.sleepIsOff()) << "the hold stands";
}

TEST_F(EndToEndLid, NobodyAnAgentOrAHoldDependsOnIsTouched) {
  // A terminal, whose shell runs the agent; the terminal's other process is part of the same application.
  const auto shell = install("Terminal", "com.example.terminal", "/bin/sh");
  install("Terminal", "com.example.terminal", "/bin/sleep", "MacOS/renderer");
  stage.configure({{"customAgents", stage.customAgent()}});
  Process terminal =
      stage.start(shell.string(), {"-c", kDiesWithParent + stage.customAgentCommand() + " & wait; exit"});
  App renderer = start("Terminal", "com.example.terminal", "MacOS/renderer");

  // A job inside a bundle, held for by its number, with a child and with the launcher above it.
  const auto runner = install("Runner", "com.example.runner", "/bin/sh");
  const auto tool = install("Runner", "com.example.runner", "/bin/sleep", "MacOS/tool");
  Process job = stage.start(runner.string(), {"-c", kDiesWithParent + "\"" + tool.string() + "\" 600 & wait; exit"});

  App ordinary = start("Exporter", "com.example.exporter");
  std::optional<App> foreign;
  if (::geteuid() == 0) {
    fs::permissions(stage.root(), fs::perms(0755));
    fs::permissions(stage.root() / "home", fs::perms(0755));
    const auto theirs = install("Theirs", "com.example.theirs", "/bin/sleep");
    Process process = stage.start("/usr/bin/setpriv", {"--reuid", "65534", "--clear-groups", theirs.string(), "600"});
    ASSERT_TRUE(
        eventually(5s, [&] { return fs::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe") == theirs; }));
    foreign.emplace(stage, std::move(process));
  }
  const std::map<pid_t, Condition> before = {{terminal.pid(), conditionOf(terminal.pid())},
                                             {job.pid(), conditionOf(job.pid())}};

  Process app = stage.startApp();
  ASSERT_TRUE(eventually(12s, [&] { return stage.status().value("reason", "") == "Tester is working"; }));
  ASSERT_EQ(stage.tovi({"preset", "max_battery"}).status, 0);
  ASSERT_EQ(stage.tovi({"hold", "--pid", std::to_string(job.pid())}).status, 0);
  close();
  ASSERT_TRUE(eventually(kAtOnce, [&] { return ordinary.paused(); }));

  // One entry of this stage, once those are out that were refused; whoever else has applications on this computer
  // isn't counted.
  const auto entries = [&] {
    const std::string journal = readFile(stage.state() / "touched.json");
    int count = 0;
    for (auto at = journal.find(stage.root()); at != std::string::npos; at = journal.find(stage.root(), at + 1))
      ++count;
    return count;
  };
  EXPECT_TRUE(eventually(kAtOnce, [&] { return entries() == 1; })) << entries();
  EXPECT_TRUE(renderer.untouched());
  for (const auto& [pid, condition] : before) EXPECT_EQ(conditionOf(pid), condition) << pid;
  EXPECT_EQ(stage.status().value("warning", Json()), Json()) << "another person's process is no fault";
  EXPECT_TRUE(!foreign || foreign->untouched());
  open();
  EXPECT_TRUE(eventually(kAtOnce, [&] { return ordinary.untouched() && nothingRecorded(); }));
}

// The process dies at a random moment, again and again; the watchdog's script and a fresh start clean up by turns.
TEST_F(EndToEndLid, AHundredSuddenDeathsLeaveNothingBehind) {
  constexpr int kRounds = 100;
  const auto seed = std::random_device{}();
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> milliseconds(0, 900);

  App exporter = start("Exporter", "com.example.exporter");
  App docker = start("Docker", "com.docker.docker");
  const Json settings = {{"preset", "longest"}, {"screenOffNoLock", true}};
  const auto configure = [&](const char* mode) {
    Json all = settings;
    all["mode"] = mode;
    stage.configure(all);
  };
  const auto left = [&] {
    std::string words;
    for (const char* file :
         {"hold", "touched.json", "powermode-restore", "timemachine-restore", "brightness-restore", "display-off"})
      if (stage.hasState(file)) words += file + std::string("; ");
    const Json now = stage.switches();
    const auto at = [&](const char* place, const Json& usual) { return now.value(Json::json_pointer(place), usual); };
    if (at("/SleepDisabled", false) != false) words += "sleep is off; ";
    if (at("/powerMode/battery/lowpowermode", 0) != 0) words += "low power; ";
    if (at("/AutoBackup", 1) != 1) words += "no backups; ";
    if (at("/displays/1/brightness", 0.8) != 0.8) words += "dark; ";
    if (at("/displays/1/enabled", true) != true) words += "screen off; ";
    if (!exporter.untouched()) words += "exporter; ";
    if (!docker.untouched()) words += "docker; ";
    return words;
  };
  int changed = 0;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    close();
    configure("on");
    const auto moment = std::chrono::milliseconds(milliseconds(random));
    const auto told = [&] { return "round " + std::to_string(round) + ", after " + std::to_string(moment.count()); };
    {
      Process app = stage.startAppUnawaited();
      std::this_thread::sleep_for(moment);
      app.signal(SIGKILL);
      app.wait();
    }
    changed += !left().empty();
    if (round % 2 == 0) {
      // The script goes by the age of the last beat.
      std::error_code never;
      fs::last_write_time(stage.state() / "alive", fs::file_time_type::clock::now() - 1h, never);
      Process script = stage.start("/bin/sh", {(stage.state() / "watchdog.sh").string()});
      EXPECT_EQ(script.wait(), 0) << told();
      EXPECT_EQ(left(), "") << told();
    } else {
      open();
      configure("off");
      Process app = stage.startAppUnawaited();
      EXPECT_TRUE(eventually(10s, [&] { return stage.heartBeats(app) && left().empty(); })) << told() << ": " << left();
    }
  }
  EXPECT_GT(changed, kRounds / 4) << "too few deaths had anything to clean up";
}

TEST_F(EndToEndLid, EnergyRanksWhoIsBusy) {
  // Two bundles with the shell in them, of which one works all the time and one now and then.
  const auto spin = stage.root() / "spin.sh";
  const auto amble = stage.root() / "amble.sh";
  writeFile(spin, "while :; do :; done\n");
  writeFile(amble, "while :; do i=0; while [ $i -lt 4000 ]; do i=$((i + 1)); done; sleep 0.1; done\n");
  Process busy = stage.start(install("Busy", "com.example.busy", "/bin/sh").string(), {spin.string()});
  Process calm = stage.start(install("Calm", "com.example.calm", "/bin/sh").string(), {amble.string()});
  Process app = stage.startApp();

  const auto reply = Json::parse(stage.tovi({"energy", "--json"}).out, nullptr, false);
  ASSERT_TRUE(reply.is_object());
  std::map<std::string, std::pair<std::size_t, Json>> ranks;
  for (std::size_t i = 0; i < reply["apps"].size(); ++i) ranks[reply["apps"][i]["name"]] = {i, reply["apps"][i]};
  ASSERT_TRUE(ranks.contains("Busy") && ranks.contains("Calm")) << reply.dump(2);
  EXPECT_LT(ranks["Busy"].first, ranks["Calm"].first);
  EXPECT_GT(ranks["Busy"].second["watts"], ranks["Calm"].second["watts"]);
}

}  // namespace
}  // namespace tovi::e2e
