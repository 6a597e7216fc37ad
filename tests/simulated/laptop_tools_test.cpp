#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <sstream>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

class LaptopTools : public testing::Test {
 protected:
  MemoryLaptop laptop;

  CommandResult run(const std::string& line) {
    auto arguments = words(line);
    const std::string path = arguments.front();
    arguments.erase(arguments.begin());
    return laptop.machine().commands.run(path, arguments);
  }
  ElevationResult elevate(const std::string& text) { return laptop.machine().commands.runElevated(text, "May I?"); }
};

TEST_F(LaptopTools, TurnTheirSwitches) {
  const struct {
    const char* line;
    std::function<bool(const LaptopSwitches&)> turned;
  } cases[] = {
      {"/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1", [](const auto& now) { return now.sleepDisabled; }},
      {"/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0", [](const auto& now) { return !now.sleepDisabled; }},
      {"/usr/bin/sudo -n /usr/bin/pmset -b lowpowermode 1",
       [](const auto& now) { return now.batteryMode.at("lowpowermode") == 1 && now.acMode.at("lowpowermode") == 0; }},
      {"/usr/bin/sudo -n /usr/bin/pmset -b lowpowermode 0",
       [](const auto& now) { return now.batteryMode.at("lowpowermode") == 0; }},
      {"/usr/bin/sudo -n /usr/bin/pmset relative wake 900",
       [this](const auto& now) { return now.nextWake == unixSeconds(laptop.now()) + 900; }},
      {"/usr/bin/sudo -n /usr/bin/tmutil disable", [](const auto& now) { return !now.autoBackup; }},
      {"/usr/bin/sudo -n /usr/bin/tmutil enable", [](const auto& now) { return now.autoBackup; }},
      {"/usr/bin/pmset displaysleepnow", [](const auto& now) { return now.displayAsleep; }},
      {"/usr/bin/caffeinate -u -t 2", [](const auto& now) { return !now.displayAsleep; }},
      {"/usr/bin/sudo -n /usr/bin/pmset sleepnow", [](const auto& now) { return now.asleep; }},
  };
  for (const auto& [line, turned] : cases) {
    EXPECT_FALSE(turned(laptop.switches())) << "already so before " << line;
    EXPECT_EQ(run(line).code, 0) << line;
    EXPECT_TRUE(turned(laptop.switches())) << line;
  }
}

TEST_F(LaptopTools, AnswerWithTheirStatus) {
  laptop.files().put("/home/anna/agent.plist", "<string>com.norvane.tovi.watchdog</string>");
  laptop.files().put("/home/anna/other.plist", "<string>com.example</string>");
  const struct {
    const char* line;
    int code;
  } cases[] = {
      // In this order: some depend on those before.
      {"/usr/bin/pmset -a disablesleep 1", 1},  // not root
      {"/usr/bin/pmset -b lowpowermode 1", 1},
      {"/usr/bin/tmutil disable", 1},
      {"/usr/bin/pmset -g custom", 0},
      {"/usr/bin/pmset -g weather", 64},
      {"/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 2", 1},  // not among the passwordless ones
      {"/usr/bin/sudo -n /usr/bin/pmset -c lowpowermode 1", 1},  // nor this
      {"/usr/bin/sudo -n /usr/bin/pmset relative wake 901", 1},
      {"/usr/bin/sudo -n /bin/sh", 1},
      {"/usr/bin/sudo /usr/bin/pmset -a disablesleep 1", 1},  // would ask on the terminal
      {"/usr/bin/sudo -n /usr/bin/pmset -b powermode 1", 1},  // allowed, but this laptop has no such setting
      {"/usr/bin/sudo -n -l /usr/bin/pmset relative wake 900", 0},
      {"/usr/bin/sudo -n -l /usr/bin/pmset relative wake 901", 1},
      {"/usr/bin/sudo -n -l", 1},
      {"/usr/bin/defaults read /Library/Preferences/com.apple.TimeMachine AutoBackup", 0},
      {"/usr/bin/xcrun simctl shutdown all", 0},
      {"/usr/bin/open -g -b com.norvane.Tovi", 1},
      {"/bin/launchctl print gui/501/com.norvane.tovi.watchdog", 113},
      {"/bin/launchctl bootout gui/501/com.norvane.tovi.watchdog", 3},
      {"/bin/launchctl bootstrap gui/501 /home/anna/missing.plist", 5},
      {"/bin/launchctl bootstrap gui/501 /home/anna/other.plist", 5},
      {"/bin/launchctl bootstrap gui/77 /home/anna/agent.plist", 5},
      {"/bin/launchctl bootstrap gui/501 /home/anna/agent.plist", 0},
      {"/bin/launchctl bootstrap gui/501 /home/anna/agent.plist", 5},  // it is there already
      {"/bin/launchctl print gui/501/com.norvane.tovi.watchdog", 0},
      {"/bin/launchctl bootout gui/501/com.norvane.tovi.watchdog", 0},
      {"/usr/sbin/visudo -cf /home/anna/missing", 1},
      {"/no/such/tool", -1},
  };
  for (const auto& [line, code] : cases) EXPECT_EQ(run(line).code, code) << line;
  EXPECT_EQ(laptop.switches(), LaptopSwitches{}) << "nothing above leaves a switch turned";
  EXPECT_EQ(laptop.commandCount("/usr/bin/pmset -g custom"), 1u);
}

TEST_F(LaptopTools, SayWhatTheRealOnesSay) {
  laptop.setSwitches([](LaptopSwitches& switches) { switches.batteryMode = {{"powermode", 2}}; });
  const std::string settings = run("/usr/bin/pmset -g custom").out;
  const std::size_t ac = settings.find("AC Power:");
  ASSERT_NE(ac, std::string::npos);
  EXPECT_EQ(settings.find("Battery Power:"), 0u);
  EXPECT_LT(settings.find(" powermode            2"), ac);
  EXPECT_GT(settings.find(" lowpowermode         0"), ac);
  EXPECT_EQ(run("/usr/bin/sudo -n /usr/bin/pmset -b powermode 1").code, 0);

  EXPECT_EQ(run("/usr/bin/defaults read /Library/Preferences/com.apple.TimeMachine AutoBackup").out, "1\n");
  EXPECT_EQ(run("/usr/bin/sudo -n -l /usr/bin/tmutil enable").out, "/usr/bin/tmutil enable\n");
  laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = true; });
  EXPECT_NE(run("/bin/launchctl print gui/501/com.norvane.tovi.watchdog").out.find("com.norvane.tovi.watchdog"),
            std::string::npos);
}

TEST_F(LaptopTools, NothingPassesWithoutTheRule) {
  laptop.edit([](LaptopReport& report) { report.privileged = false; });
  for (const std::string& command : LaptopModel::passwordless()) {
    const CommandResult result = run("/usr/bin/sudo -n " + command);
    EXPECT_EQ(result.code, 1) << command;
    EXPECT_EQ(result.out, "sudo: a password is required\n");
    EXPECT_EQ(run("/usr/bin/sudo -n -l " + command).code, 1) << command;
  }
  EXPECT_EQ(laptop.switches(), LaptopSwitches{});
  EXPECT_EQ(run("/usr/bin/pmset displaysleepnow").code, 0) << "that needs no rule";
}

TEST_F(LaptopTools, AreRefusedByTheBeginningOfTheirWords) {
  laptop.tool("/opt/thing", [](const auto&) { return CommandResult{0, "ran"}; });
  const struct {
    const char* entry;
    const char* line;
    int code;
  } cases[] = {
      {"pmset -a disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1", 1},
      {"pmset -a disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0", 0},
      {"disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1", 0},
      {"pmset", "/usr/bin/sudo -n /usr/bin/pmset sleepnow", 1},
      {"pmset", "/usr/bin/pmset -g custom", 1},
      {"pmset", "/usr/bin/sudo -n -l /usr/bin/pmset sleepnow", 0},  // asking isn't running
      {"sudo -n", "/usr/bin/sudo -n /usr/bin/pmset sleepnow", 0},   // these words are left out
      {"/usr/bin/pmset", "/usr/bin/pmset -g custom", 0},            // the name is the last component
      {"tmutil dis", "/usr/bin/sudo -n /usr/bin/tmutil disable", 1},
      {"thing", "/opt/thing", 1},  // also what isn't one of the laptop's own
      {"thong", "/opt/thing", 0},
  };
  for (const auto& [entry, line, code] : cases) {
    laptop.edit([&beginning = entry](LaptopReport& report) { report.refuse = {"nothing of ours", beginning}; });
    const LaptopSwitches before = laptop.switches();
    EXPECT_EQ(run(line).code, code) << entry << " / " << line;
    EXPECT_TRUE(code == 0 || laptop.switches() == before) << line;
  }
}

TEST_F(LaptopTools, SleepNowIsHeldOffWhileSleepIsDisabled) {
  int sleeps = 0;
  const Registration heard = laptop.machine().power.onWillSleep([&] { ++sleeps; });
  run("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1");
  EXPECT_EQ(run("/usr/bin/pmset sleepnow").code, 0);
  laptop.settle();
  EXPECT_FALSE(laptop.switches().asleep);
  EXPECT_EQ(sleeps, 0);
  run("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0");
  run("/usr/bin/pmset sleepnow");
  EXPECT_EQ(sleeps, 0) << "not out of the command, which the main thread waits for";
  laptop.settle();
  run("/usr/bin/pmset sleepnow");
  laptop.settle();
  EXPECT_EQ(sleeps, 2) << "whoever asks was awake to ask, also if no wake was reported";
}

constexpr const char* kRule =
    "# Installed by Tovi.\nCmnd_Alias TOVI_PMSET = /usr/bin/pmset sleepnow\nanna ALL=(root) NOPASSWD: TOVI_PMSET\n";
constexpr const char* kInstall =
    "/bin/mkdir -p /private/etc/sudoers.d && /usr/bin/install -m 0440 -o root -g wheel '/tmp/tovi-sudoers' "
    "/private/etc/sudoers.d/.tovi.staging && /usr/sbin/visudo -cf /private/etc/sudoers.d/.tovi.staging && "
    "/bin/mv -f /private/etc/sudoers.d/.tovi.staging /private/etc/sudoers.d/tovi && /bin/mkdir -p /usr/local/bin && "
    "/bin/ln -sf '/Applications/Tovi.app/Contents/MacOS/Tovi' /usr/local/bin/tovi";

TEST_F(LaptopTools, ElevationInstallsAndRemovesTheRule) {
  laptop.edit([](LaptopReport& report) { report.privileged = false; });
  laptop.files().put("/tmp/tovi-sudoers", kRule);
  const ElevationResult result = elevate(kInstall);
  ASSERT_EQ(result.outcome, ElevationResult::Outcome::done) << result.message;
  EXPECT_EQ(laptop.files().read("/private/etc/sudoers.d/tovi"), kRule);
  EXPECT_EQ(laptop.files().status("/private/etc/sudoers.d/tovi")->mode, 0440u);
  EXPECT_FALSE(laptop.files().exists("/private/etc/sudoers.d/.tovi.staging"));
  EXPECT_EQ(laptop.files().resolve("/usr/local/bin/tovi"), "/Applications/Tovi.app/Contents/MacOS/Tovi");
  EXPECT_EQ(run("/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0").code, 0);
  EXPECT_EQ(elevate(kInstall).outcome, ElevationResult::Outcome::done) << "a second time over the read-only file";

  EXPECT_EQ(elevate("/bin/rm -f /private/etc/sudoers.d/tovi && /bin/rm -f /usr/local/bin/tovi").outcome,
            ElevationResult::Outcome::done);
  EXPECT_FALSE(laptop.report().privileged);
  EXPECT_FALSE(laptop.files().exists("/usr/local/bin/tovi"));
  EXPECT_EQ(laptop.commands().back().path, "elevated");
  EXPECT_EQ(laptop.commands().back().code, 0);
}

TEST_F(LaptopTools, ElevationFailsWithoutHavingGrantedAnything) {
  using Outcome = ElevationResult::Outcome;
  laptop.files().put("/tmp/tovi-sudoers", std::string(kRule) + "anna ALL=(ALL) NOPASSWD: ALL\n");
  laptop.files().put("/etc/passwd", "root");
  const struct {
    const char* what;
    const char* text;
    std::function<void(LaptopReport&)> edit;
    Outcome outcome;
  } cases[] = {
      {"a rule with a fault never reaches its folder", kInstall, [](LaptopReport&) {}, Outcome::failed},
      {"cancelled", kInstall, [](LaptopReport& r) { r.elevation = LaptopElevation::cancel; }, Outcome::cancelled},
      {"refused by the system", kInstall, [](LaptopReport& r) { r.elevation = LaptopElevation::fail; },
       Outcome::failed},
      {"a refused step", "/bin/mkdir -p /usr/local/bin && /bin/rm -f /usr/local/bin/tovi",
       [](LaptopReport& r) { r.refuse = {"rm -f"}; }, Outcome::failed},
      {"an unknown step", "/usr/bin/chown root /usr/local/bin", [](LaptopReport&) {}, Outcome::failed},
      {"another's file", "/bin/rm -f /etc/passwd", [](LaptopReport&) {}, Outcome::failed},
      {"a way out of the folder", "/bin/rm -f /usr/local/bin/../../../etc/passwd", [](LaptopReport&) {},
       Outcome::failed},
      {"a longer name", "/bin/mkdir -p /usr/local/binary", [](LaptopReport&) {}, Outcome::failed},
      {"a pipe", "/bin/rm -f /usr/local/bin/tovi | sh", [](LaptopReport&) {}, Outcome::failed},
  };
  for (const auto& [what, text, change, outcome] : cases) {
    laptop.edit([&, &edit = change](LaptopReport& report) {
      report = {};
      report.privileged = false;
      edit(report);
    });
    const ElevationResult result = elevate(text);
    EXPECT_EQ(result.outcome, outcome) << what;
    EXPECT_EQ(result.message.empty(), outcome != Outcome::failed) << what;
    EXPECT_FALSE(laptop.report().privileged) << what;
    EXPECT_FALSE(laptop.files().exists("/private/etc/sudoers.d/tovi")) << what;
    EXPECT_TRUE(laptop.files().exists("/etc/passwd")) << what;
    EXPECT_EQ(laptop.commands().back().code, 1) << what;
  }
}

TEST_F(LaptopTools, EachPowerSourceHasItsOwnMode) {
  const auto modes = [&](const std::string& words) {
    laptop.setSwitches([](LaptopSwitches& switches) { switches = {}; });
    EXPECT_EQ(elevate("/usr/bin/pmset " + words).outcome, ElevationResult::Outcome::done) << words;
    return std::pair{laptop.switches().batteryMode.at("lowpowermode"), laptop.switches().acMode.at("lowpowermode")};
  };
  EXPECT_EQ(modes("-b lowpowermode 1"), std::pair(1, 0));
  EXPECT_EQ(modes("-c lowpowermode 1"), std::pair(0, 1));
  EXPECT_EQ(modes("-a lowpowermode 1"), std::pair(1, 1));
  EXPECT_EQ(elevate("/usr/bin/pmset -a lowpowermode 2").outcome, ElevationResult::Outcome::failed);
  EXPECT_EQ(elevate("/usr/bin/sudo -n /usr/bin/pmset sleepnow").outcome, ElevationResult::Outcome::failed);
}

TEST_F(LaptopTools, SpawnedAndStartedProgramsAreToldApart) {
  laptop.tool("/usr/bin/env", [](const auto& arguments) {
    return CommandResult{static_cast<int>(arguments.size()), ""};
  });
  laptop.machine().commands.spawn("/usr/bin/caffeinate", {"-u", "-t", "2"});
  const auto child = laptop.machine().commands.start("/usr/bin/env", {"a", "b"});
  ASSERT_TRUE(child);
  EXPECT_EQ(laptop.processes().parent(*child), laptop.processes().self());
  EXPECT_EQ(laptop.machine().commands.wait(*child), 2);
  EXPECT_FALSE(laptop.processes().exists(*child));
  EXPECT_FALSE(laptop.machine().commands.start("/no/such", {}));
  ASSERT_EQ(laptop.commands().size(), 1u) << "the person's own command isn't Tovi's";
  EXPECT_EQ(laptop.commands()[0].line(), "/usr/bin/caffeinate -u -t 2");
}

}  // namespace
}  // namespace tovi
