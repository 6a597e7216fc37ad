#include "safety/Setup.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <pugixml.hpp>
#include <sstream>

#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

constexpr char kRule[] = "/private/etc/sudoers.d/tovi";
constexpr char kLink[] = "/usr/local/bin/tovi";

struct House {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  tovi::Setup setup{laptop.machine(), state};

  explicit House(bool privileged = false, MemoryLaptop::Options options = {}) : laptop(std::move(options)) {
    laptop.edit([&](LaptopReport& report) { report.privileged = privileged; });
  }
  void refuse(std::vector<std::string> commands) {
    laptop.edit([&](LaptopReport& report) { report.refuse = std::move(commands); });
  }
  void answer(LaptopElevation answer) {
    laptop.edit([&](LaptopReport& report) { report.elevation = answer; });
  }
  int passwordsAsked() {
    int asked = 0;
    for (const auto& command : laptop.commands()) asked += command.path == "elevated";
    return asked;
  }
};

TEST(SetupTest, PutsEverythingInPlaceAfterOnePasswordAndTakesItAllAway) {
  House house;
  EXPECT_EQ(house.setup.run(), std::nullopt);
  EXPECT_EQ(house.passwordsAsked(), 1);
  EXPECT_TRUE(house.setup.setupReady());
  EXPECT_TRUE(house.setup.wakeReady());
  EXPECT_TRUE(house.setup.cliInstalled());
  EXPECT_TRUE(house.setup.watchdogLoaded());
  EXPECT_EQ(house.laptop.files().read(kRule), house.setup.sudoersText());
  EXPECT_EQ(house.laptop.files().status(kRule)->mode, 0440u);
  EXPECT_EQ(house.laptop.files().status(house.state.path("watchdog.sh"))->mode, 0755u);
  EXPECT_FALSE(house.laptop.files().exists("/tmp/tovi-sudoers"));

  EXPECT_EQ(house.setup.run(), std::nullopt);
  EXPECT_EQ(house.passwordsAsked(), 1) << "what stands is not asked for again";

  EXPECT_EQ(house.setup.uninstall(), std::nullopt);
  EXPECT_EQ(house.passwordsAsked(), 2);
  EXPECT_FALSE(house.laptop.files().exists(kRule) || house.laptop.files().exists(kLink));
  EXPECT_FALSE(house.setup.watchdogReady() || house.laptop.switches().watchdogLoaded);
  EXPECT_EQ(house.setup.uninstall(), std::nullopt);
  EXPECT_EQ(house.passwordsAsked(), 2) << "nothing left that needs one";
}

// The one command and its prompt, through the shell's own rules of quoting.
TEST(SetupTest, AnyPathOfTheProgramSurvivesTheElevatedCommand) {
  House house(false, {.executable = "/Applications/Anna's \"own\" $Tovi.app/Contents/MacOS/Tovi"});
  EXPECT_EQ(house.setup.run(), std::nullopt);
  EXPECT_TRUE(house.setup.cliInstalled());
  EXPECT_EQ(house.laptop.files().resolve(kLink), house.laptop.surroundings().executable);
  const auto asked = [&] {
    for (const auto& command : house.laptop.commands()) {
      if (command.path == "elevated") return command.arguments;
    }
    return std::vector<std::string>{};
  };
  EXPECT_EQ(asked(),
            (std::vector<std::string>{
                "/bin/mkdir -p /private/etc/sudoers.d && /usr/bin/install -m 0440 -o root -g wheel '/tmp/tovi-sudoers' "
                "/private/etc/sudoers.d/.tovi.staging && /usr/sbin/visudo -cf /private/etc/sudoers.d/.tovi.staging && "
                "/bin/mv -f /private/etc/sudoers.d/.tovi.staging /private/etc/sudoers.d/tovi && /bin/mkdir -p "
                "/usr/local/bin && /bin/ln -sf '/Applications/Anna'\\''s \"own\" $Tovi.app/Contents/MacOS/Tovi' "
                "/usr/local/bin/tovi",
                "Tovi needs your password once to control sleep while the lid is closed."}));
  house.laptop.forgetCommands();
  EXPECT_EQ(house.setup.uninstall(), std::nullopt);
  EXPECT_EQ(asked(), (std::vector<std::string>{
                         "/bin/rm -f /private/etc/sudoers.d/tovi && /bin/rm -f /usr/local/bin/tovi",
                         "Tovi needs your password to remove its sleep permission and the tovi command."}));
}

TEST(SetupTest, EndsNoSession) {
  for (const bool privileged : {true, false}) {
    for (const bool holding : {true, false}) {
      House house(privileged);
      house.laptop.setSwitches([&](LaptopSwitches& switches) { switches.sleepDisabled = true; });
      if (holding) house.state.touch(house.state.path("hold"));
      EXPECT_EQ(house.setup.run(), std::nullopt);
      EXPECT_EQ(house.laptop.switches().sleepDisabled, holding) << privileged;
    }
  }
}

TEST(SetupTest, EveryPrivilegedCommandIsInTheRule) {
  const std::string text = House().setup.sudoersText();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_TRUE(text.ends_with("\nanna ALL=(root) NOPASSWD: TOVI_PMSET\n"));
  for (const std::string& command : LaptopModel::passwordless()) {
    EXPECT_NE((text + ",").find(" " + command), std::string::npos) << command;
  }
  EXPECT_EQ(Setup::commands().size(), LaptopModel::passwordless().size());
  EXPECT_EQ(text.find('*'), std::string::npos) << "no wildcard: exact arguments only";
}

TEST(SetupTest, ARefusalLeavesNothingInTheSystemsFolders) {
  struct Case {
    const char* name;
    LaptopElevation answer;
    std::vector<std::string> refuse;
    const char* message;
  };
  const Case cases[] = {
      {"cancelled", LaptopElevation::cancel, {}, "Setup cancelled."},
      {"wrong password", LaptopElevation::fail, {}, "The administrator user name or password was incorrect."},
      {"faulty rule", LaptopElevation::grant, {"visudo"}, "visudo: the laptop refused this command"},
  };
  for (const Case& one : cases) {
    House house;
    house.answer(one.answer);
    house.refuse(one.refuse);
    EXPECT_EQ(house.setup.run(), one.message) << one.name;
    for (const char* made : {kRule, kLink, "/tmp/tovi-sudoers"}) {
      EXPECT_FALSE(house.laptop.files().exists(made)) << one.name;
    }
  }
}

TEST(SetupTest, ARuleThatSudoDoesNotFollowAndAFolderThatCannotBeWrittenAreSaid) {
  House house;
  house.refuse({"pmset -a disablesleep 0"});
  EXPECT_EQ(house.setup.run(), "Installed, but sudo isn't accepting it yet. Try Set up again.");
  House closed;
  closed.laptop.files().setReadOnly("/home/anna");
  EXPECT_EQ(closed.setup.run(), "Tovi couldn't write " + closed.state.path("watchdog.sh"));
  EXPECT_EQ(closed.passwordsAsked(), 0);
}

// A rule that lacks one command, and a person who cancels.
class OlderRule final : public Commands {
 public:
  explicit OlderRule(std::string missing) : missing_(std::move(missing)) {}
  CommandResult run(const std::string& path, const std::vector<std::string>& arguments) override {
    return {MemoryLaptop::Command{0, path, arguments}.line().ends_with(missing_) ? 1 : 0, {}};
  }
  void spawn(const std::string&, const std::vector<std::string>&) override {}
  ElevationResult runElevated(const std::string&, const std::string&) override {
    return {ElevationResult::Outcome::cancelled, {}};
  }
  std::optional<Pid> start(const std::string&, const std::vector<std::string>&) override { return std::nullopt; }
  int wait(Pid) override { return 1; }

 private:
  std::string missing_;
};

TEST(SetupTest, ARuleOfAnOlderKindIsInstalledAnew) {
  for (const char* missing : {"tmutil enable", "relative wake 900", "nothing"}) {
    House house(true);
    OlderRule commands(missing);
    const Machine& m = house.laptop.machine();
    const Machine machine{m.surroundings, m.clock,    m.queue,     m.files,      m.fileEvents,
                          m.processes,    m.power,    m.displays,  m.assertions, m.workspace,
                          commands,       m.defaults, m.broadcast, m.notices,    m.http};
    const tovi::Setup setup(machine, house.state);
    const bool whole = missing == std::string_view{"nothing"};
    EXPECT_EQ(setup.wakeReady(), whole) << missing;
    EXPECT_EQ(setup.run(), whole ? std::nullopt : std::optional<std::string>{"Setup cancelled."}) << missing;
  }
}

TEST(SetupTest, AnApplicationThatIsNotInstalledChangesNothing) {
  House house(false, {.executable = "/ApplicationsX/Tovi"});
  EXPECT_EQ(house.setup.run(), "Move Tovi to your Applications folder first, then open it from there.");
  EXPECT_FALSE(house.setup.watchdogReady());
  EXPECT_TRUE(house.laptop.commands().empty());
}

TEST(LaunchAgent, NamesTheScriptWhateverItsPath) {
  House house(false, {.home = "/home/a <b>&\"c'"});
  ASSERT_EQ(house.setup.installWatchdog(), std::nullopt);
  pugi::xml_document document;
  const std::string text = *house.laptop.files().read(house.setup.watchdogPlistPath());
  ASSERT_TRUE(document.load_string(text.c_str()));
  std::string flat;
  for (const pugi::xml_node& node : document.child("plist").child("dict")) {
    flat += fmt::format("{}={};", node.name(), node.text().get());
    for (const pugi::xml_node& inner : node.children("string")) flat += fmt::format("{};", inner.text().get());
  }
  EXPECT_EQ(flat, fmt::format("key=Label;string=com.norvane.tovi.watchdog;key=ProgramArguments;array=;/bin/sh;{};"
                              "key=StartInterval;integer=60;key=RunAtLoad;true=;",
                              house.state.path("watchdog.sh")));
}

TEST(LaunchAgent, AFailedStartIsSaidUnlessItRunsForAllThat) {
  House house;
  house.refuse({"launchctl bootstrap"});
  EXPECT_EQ(house.setup.installWatchdog(), "Couldn't start the watchdog: launchctl: the laptop refused this command");
  house.laptop.setSwitches([](LaptopSwitches& switches) { switches.watchdogLoaded = true; });
  house.refuse({"launchctl bootout"});
  EXPECT_EQ(house.setup.installWatchdog(), std::nullopt) << "loaded already";
}

TEST(LaunchAgent, FollowsAnApplicationThatMoved) {
  House house;
  house.setup.refreshWatchdogScript();
  EXPECT_FALSE(house.state.exists("watchdog.sh")) << "no script without set-up";
  ASSERT_EQ(house.setup.installWatchdog(), std::nullopt);
  const auto operations = house.laptop.faults().operations();
  house.setup.refreshWatchdogScript();
  EXPECT_EQ(house.laptop.faults().operations(), operations) << "unchanged, so not written";
  house.laptop.files().put(house.state.path("watchdog.sh"), "old", 0600);
  house.setup.refreshWatchdogScript();
  EXPECT_EQ(house.state.read("watchdog.sh"), house.setup.watchdogScript());
  EXPECT_EQ(house.laptop.files().status(house.state.path("watchdog.sh"))->mode, 0755u);
}

TEST(Removal, LeavesSomebodyElsesLinkAndSeesAHiddenRule) {
  House house(true);
  house.laptop.files().put("/opt/other", "");
  house.laptop.files().makeFolders("/usr/local/bin");
  house.laptop.files().link("/opt/other", kLink);
  EXPECT_EQ(house.setup.uninstall(), std::nullopt);
  EXPECT_FALSE(house.laptop.report().privileged) << "live although no file could be seen";
  EXPECT_TRUE(house.laptop.files().exists(kLink));
  House cancelled(true);
  cancelled.answer(LaptopElevation::cancel);
  EXPECT_EQ(cancelled.setup.uninstall(), "Setup cancelled.");
}

// The script is run for real, by the shell that a launch agent gets.
class Script : public testing::Test {
 protected:
  std::string home_ = testing::TempDir() + "tovi-script-XXXXXX";
  std::string folder_, executable_;

  void SetUp() override {
    ASSERT_NE(mkdtemp(home_.data()), nullptr);
    folder_ = home_ + "/Library/Application Support/Tovi";
    executable_ = home_ + "/it's $(not) \"plain\"; it`s \\Tovi";
    ASSERT_EQ(shell("mkdir -p \"$HOME/Library/Application Support/Tovi\""), 0);
    std::string text = House(false, {.executable = executable_}).setup.watchdogScript();
    for (const auto& [theirs, here] :
         {std::pair<std::string, std::string>{"/usr/bin/sudo", home_ + "/sudo"}, {"stat -f %m", "stat -c %Y"}}) {
      ASSERT_NE(text.find(theirs), std::string::npos);
      text.replace(text.find(theirs), theirs.size(), here);
    }
    write("watchdog.sh", text);
  }
  void TearDown() override { EXPECT_EQ(shell("rm -rf \"$HOME\""), 0); }

  int shell(const std::string& command) const {
    return std::system(fmt::format("HOME='{}'; export HOME; {}", home_, command).c_str());
  }
  void write(const std::string& name, const std::string& content) { std::ofstream(folder_ + "/" + name) << content; }
  // A program that writes its arguments down and ends with `code`.
  void program(const std::string& path, int code) {
    std::ofstream(path) << "#!/bin/sh\nprintf '%s\\n' \"$*\" >> \"$HOME/ran\"\nexit " << code << "\n";
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  }
  // What the programs were run with in one run of the script.
  std::string run() {
    std::ofstream(home_ + "/ran").flush();
    EXPECT_EQ(shell("/bin/sh \"$HOME/Library/Application Support/Tovi/watchdog.sh\""), 0);
    std::ifstream file(home_ + "/ran");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  bool holds() const { return access((folder_ + "/hold").c_str(), F_OK) == 0; }
  void age(int seconds) {
    ASSERT_EQ(shell(fmt::format("touch -d '{} seconds ago' \"{}/alive\"", seconds, folder_)), 0);
  }
};

TEST_F(Script, WakesTheProgramOnlyWhenTheBeatIsOld) {
  program(executable_, 0);
  EXPECT_EQ(run(), "cli watchdog\n") << "never beat";
  write("alive", "");
  EXPECT_EQ(run(), "");
  age(36);
  EXPECT_EQ(run(), "");
  age(41);
  EXPECT_EQ(run(), "cli watchdog\n");
}

TEST_F(Script, SwitchesSleepBackOnWhenTheProgramIsGone) {
  program(home_ + "/sudo", 0);
  EXPECT_EQ(run(), "") << "no marker, not ours";
  write("hold", "");
  EXPECT_EQ(run(), "-n /usr/bin/pmset -a disablesleep 0\n");
  EXPECT_FALSE(holds());
  write("hold", "");
  program(home_ + "/sudo", 1);
  EXPECT_EQ(run(), "-n /usr/bin/pmset -a disablesleep 0\n");
  EXPECT_TRUE(holds()) << "kept for the next minute";
}

}  // namespace
}  // namespace tovi
