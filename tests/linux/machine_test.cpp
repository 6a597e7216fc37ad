#include "platform/linux/LinuxMachine.h"

#include <cmath>

#include "linux/Helpers.h"

namespace tovi {
namespace {

TEST(LinuxMachine, SurroundingsComeFromTheEnvironment) {
  ::setenv("HOME", "/some/home//", 1);
  ::setenv("XDG_RUNTIME_DIR", "relative", 1);
  char name[] = "./tovi", word[] = "status";
  char* arguments[] = {name, word, nullptr};
  const Surroundings found = surroundingsFromEnvironment(2, arguments);
  EXPECT_EQ(found.home, "/some/home");
  EXPECT_EQ(found.stateFolder, "/some/home/Library/Application Support/Tovi");
  EXPECT_EQ(found.launchAgents, "/some/home/Library/LaunchAgents");
  EXPECT_EQ(found.executable, std::filesystem::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(found.arguments, (std::vector<std::string>{"./tovi", "status"}));
  EXPECT_EQ(runtimeFolderFromEnvironment(), std::nullopt) << "a relative folder depends on where one stands";
  ::setenv("HOME", "not/absolute", 1);
  EXPECT_TRUE(surroundingsFromEnvironment(0, nullptr).home.starts_with('/')) << "the account's";
  ::unsetenv("HOME");
  EXPECT_TRUE(surroundingsFromEnvironment(0, nullptr).home.starts_with('/'));
}

TEST(LinuxMachine, MakingOneTouchesNoFileAndWhatItLacksIsAbsent) {
  const TemporaryFolder home;
  Surroundings surroundings;
  surroundings.home = home.path();
  surroundings.stateFolder = home / "Library/Application Support/Tovi";
  LinuxMachine linux{surroundings, {}};
  const Machine machine = linux.machine();
  EXPECT_TRUE(std::filesystem::is_empty(home.path()));
  EXPECT_FALSE(machine.power.clamshellClosed() || machine.power.battery().has_value());
  EXPECT_TRUE(machine.displays.online().empty());
  EXPECT_NE(machine.displays.setEnabled(1, false), 0);
  EXPECT_EQ(machine.assertions.holdDisplayAwake("x"), 0u);
  EXPECT_FALSE(machine.notices.play("Tink"));
  const double boot = unixSeconds(machine.clock.bootTime().value()), now = unixSeconds(machine.clock.now());
  EXPECT_EQ(boot, std::floor(boot));
  EXPECT_NEAR(now, boot + machine.clock.sinceBoot().count(), 2);
  EXPECT_NEAR(now, static_cast<double>(machine.processes.now()) / 1e6, 2) << "the scale of start times";
}

}  // namespace
}  // namespace tovi
