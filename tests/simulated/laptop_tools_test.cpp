#include <gtest/gtest.h>

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

TEST_F(LaptopTools, AnswerWithTheirStatus) {
  laptop.files().put("/home/anna/agent.plist", "<string>com.norvane.tovi.watchdog</string>");
  laptop.files().put("/home/anna/other.plist", "<string>com.example</string>");
  const struct {
    const char* line;
    int code;
  } cases[] = {
      // In this order: some depend on those before.
      {"/usr/bin/pmset -a disablesleep 1", 1},  // not root
      {"/usr/bin/pmset -g weather", 64},
      {"/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 2", 1},  // not among the passwordless ones
      {"/usr/bin/sudo -n /usr/bin/pmset -c lowpowermode 1", 1},  // nor this
      {"/usr/bin/sudo -n /usr/bin/pmset relative wake 901", 1},
      {"/usr/bin/sudo -n /bin/sh", 1},
      {"/usr/bin/sudo /usr/bin/pmset -a disablesleep 1", 1},  // would ask on the terminal
      {"/usr/bin/sudo -n /usr/bin/pmset -b powermode 1", 1},  // allowed, but this laptop has no such setting
      {"/usr/bin/sudo -n -l /usr/bin/pmset relative wake 900", 0},
      {"/usr/bin/sudo -n -l /usr/bin/pmset relative wake 901", 1},
      {"/usr/bin/open -g -b com.norvane.Tovi", 1},
      {"/bin/launchctl print gui/501/com.norvane.tovi.watchdog", 113},
      {"/bin/launchctl bootout gui/501/com.norvane.tovi.watchdog", 3},
      {"/bin/launchctl bootstrap gui/501 /home/anna/other.plist", 5},
      {"/bin/launchctl bootstrap gui/77 /home/anna/agent.plist", 5},
      {"/bin/launchctl bootstrap gui/501 /home/anna/agent.plist", 0},
      {"/bin/launchctl bootstrap gui/501 /home/anna/agent.plist", 5},  // it is there already
      {"/bin/launchctl bootout gui/501/com.norvane.tovi.watchdog", 0},
      {"/no/such/tool", -1},
  };
  for (const auto& [line, code] : cases) EXPECT_EQ(run(line).code, code) << line;
  EXPECT_EQ(laptop.switches(), LaptopSwitches{}) << "nothing above leaves a switch turned";
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
  const struct {
    const char* entry;
    const char* line;
    int code;
  } cases[] = {
      {"pmset -a disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1", 1},
      {"pmset -a disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 0", 0},
      {"disablesleep 1", "/usr/bin/sudo -n /usr/bin/pmset -a disablesleep 1", 0},
      {"pmset", "/usr/bin/pmset -g custom", 1},
      {"pmset", "/usr/bin/sudo -n -l /usr/bin/pmset sleepnow", 0},  // asking isn't running
      {"sudo -n", "/usr/bin/sudo -n /usr/bin/pmset sleepnow", 0},   // these words are left out
      {"/usr/bin/pmset", "/usr/bin/pmset -g custom", 0},            // the name is the last component
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

TEST_F(LaptopTools, ElevationFailsWithoutHavingGrantedAnything) {
  using Outcome = ElevationResult::Outcome;
  laptop.files().put("/tmp/tovi-sudoers", std::string(kRule) + "anna ALL=(ALL) NOPASSWD: ALL\n");
  laptop.files().put("/etc/passwd", "root");
  const struct {
    const char* what;
    const char* text;
    LaptopElevation elevation = LaptopElevation::grant;
    Outcome outcome = Outcome::failed;
  } cases[] = {
      {"a rule with a fault never reaches its folder", kInstall},
      {"cancelled", kInstall, LaptopElevation::cancel, Outcome::cancelled},
      {"refused by the system", kInstall, LaptopElevation::fail},
      {"a refused step", "/bin/mkdir -p /usr/local/bin && /bin/rm -f /usr/local/bin/tovi"},
      {"an unknown step", "/usr/bin/chown root /usr/local/bin"},
      {"another's file", "/bin/rm -f /etc/passwd"},
      {"a way out of the folder", "/bin/rm -f /usr/local/bin/../../../etc/passwd"},
      {"a longer name", "/bin/mkdir -p /usr/local/binary"},
      {"a pipe", "/bin/mkdir -p /usr/local/bin | sh"},
  };
  for (const auto& [what, text, elevation, outcome] : cases) {
    laptop.edit([&answer = elevation](LaptopReport& report) {
      report.privileged = false;
      report.elevation = answer;
      report.refuse = {"rm -f /usr/local/bin/tovi"};
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

}  // namespace
}  // namespace tovi
