#include "platform/linux/LinuxMachine.h"

#include <cmath>

#include "linux/Helpers.h"

namespace tovi {
namespace {

// Sets a variable for as long as it lives; null removes it.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    set(value);
  }
  ~Variable() { set(before_ ? before_->c_str() : nullptr); }

 private:
  void set(const char* value) { value != nullptr ? ::setenv(name_, value, 1) : ::unsetenv(name_); }
  const char* name_;
  std::optional<std::string> before_;
};

TEST(LinuxMachine, SurroundingsComeFromTheEnvironment) {
  const Variable home{"HOME", "/some/home//"}, temporary{"TMPDIR", nullptr}, runtime{"XDG_RUNTIME_DIR", "relative"};
  char name[] = "./tovi", word[] = "status";
  char* arguments[] = {name, word, nullptr};
  const Surroundings found = surroundingsFromEnvironment(2, arguments);
  EXPECT_EQ(found.home, "/some/home");
  EXPECT_EQ(found.stateFolder, "/some/home/Library/Application Support/Tovi");
  EXPECT_EQ(found.launchAgents, "/some/home/Library/LaunchAgents");
  EXPECT_EQ(found.temporaryFolder, "/tmp");
  EXPECT_EQ(found.executable, std::filesystem::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(found.arguments, (std::vector<std::string>{"./tovi", "status"}));
  EXPECT_EQ(found.uid, ::getuid());
  EXPECT_EQ(runtimeFolderFromEnvironment(), std::nullopt) << "a relative folder depends on where one stands";
}

TEST(LinuxMachine, WithoutAHomeVariableTheAccountsIsTaken) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "not/absolute"}) {
    const Variable home{"HOME", value};
    EXPECT_EQ(surroundingsFromEnvironment(0, nullptr).home.substr(0, 1), "/");
  }
}

TEST(LinuxMachine, MakingOneTouchesNoFileAndEveryPartWorks) {
  const TemporaryFolder home;
  Surroundings surroundings;
  surroundings.home = home.path();
  surroundings.stateFolder = home / "Library/Application Support/Tovi";
  LinuxMachine linux{surroundings, {}};
  const Machine machine = linux.machine();
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  EXPECT_EQ(machine.surroundings.home, home.path());

  EXPECT_EQ(machine.power.clamshellClosed(), std::nullopt);
  EXPECT_EQ(machine.power.battery().has_value(), false);
  EXPECT_TRUE(machine.displays.online().empty());
  EXPECT_NE(machine.displays.setEnabled(1, false), 0);
  EXPECT_EQ(machine.assertions.holdDisplayAwake("x"), 0u);
  EXPECT_FALSE(machine.notices.play("Tink"));
  EXPECT_NE(machine.processes.table().find(::getpid()), nullptr);

  const double boot = unixSeconds(machine.clock.bootTime().value());
  EXPECT_EQ(boot, std::floor(boot));
  EXPECT_NEAR(unixSeconds(machine.clock.now()), boot + machine.clock.sinceBoot().count(), 2);
}

}  // namespace
}  // namespace tovi
