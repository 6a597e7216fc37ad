#include "platform/simulated/FolderLaptop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux/Helpers.h"

namespace tovi {
namespace {

class LaptopOnAFolder : public testing::Test {
 protected:
  TemporaryFolder place;
  const std::string folder = place / "laptop";

  Surroundings surroundings() const {
    Surroundings here;
    here.home = place / "home";
    here.stateFolder = here.home + "/state";
    here.temporaryFolder = place / "tmp";
    here.sudoersFolder = "/private/etc/sudoers.d";
    here.localBin = "/usr/local/bin";
    here.executable = "/bin/true";
    return here;
  }
  std::unique_ptr<FolderLaptop> open() const {
    return std::make_unique<FolderLaptop>(folder, surroundings(), LinuxOptions{});
  }
  LaptopSwitches stored() const { return LaptopSwitches::parse(contents(folder + "/switches.json")).value(); }
  void report(const std::string& text) const { put(folder + "/laptop.json", text); }

  // Runs the laptop's queue until `holds` or for ten seconds at most; whether it held.
  static bool waitFor(FolderLaptop& laptop, const std::function<bool()>& holds) {
    MainQueue& queue = laptop.machine().queue;
    bool held = false;
    const auto look = queue.every(Seconds{0.005}, Seconds{0}, [&] {
      if ((held = holds())) queue.stop();
    });
    const auto end = queue.after(Seconds{10}, [&] { queue.stop(); });
    queue.run();
    return held;
  }

  // Runs `body` in a process of its own, which then ends without tidying up.
  static pid_t inChild(const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body() ? 0 : 1);
    return child;
  }
  static bool succeeded(pid_t child) {
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0;
  }
};

CommandResult pmset(FolderLaptop& laptop, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"-n", "/usr/bin/pmset"});
  return laptop.machine().commands.run("/usr/bin/sudo", arguments);
}

TEST_F(LaptopOnAFolder, IsMadeOnFirstUseAndKeepsWhatWasThereBeforeIt) {
  FolderLaptop fresh(place / "fresh", surroundings(), {});
  EXPECT_EQ(fresh.machine().power.clamshellClosed(), false);
  EXPECT_EQ(contents(place / "fresh/laptop.json"), LaptopReport{}.toJson());
  report(R"({"lid": "none", "displays": [{"id": 7, "builtin": true}]})");
  const auto laptop = open();
  EXPECT_EQ(laptop->machine().power.clamshellClosed(), std::nullopt);
  EXPECT_EQ(laptop->machine().displays.online(), (std::vector<Display>{{7, true}}));
  EXPECT_TRUE(stored().displays.contains(7));
}

TEST_F(LaptopOnAFolder, ABrokenOrMissingFileKeepsTheLastGoodOne) {
  report(R"({"lid": "closed"})");
  const auto laptop = open();
  PowerRegistry& power = laptop->machine().power;
  EXPECT_EQ(power.clamshellClosed(), true);
  for (const char* broken : {"{\"lid\": \"op", "", "[]"}) {
    report(broken);
    EXPECT_EQ(power.clamshellClosed(), true) << broken;
  }
  std::filesystem::remove(folder + "/laptop.json");
  EXPECT_EQ(power.clamshellClosed(), true);
  report("{}");
  EXPECT_EQ(power.clamshellClosed(), false);
}

TEST_F(LaptopOnAFolder, TwoChangesOfEqualLengthWithinOneMomentOfFileTimeAreBothSeen) {
  report("{}");
  const auto laptop = open();
  PowerRegistry& power = laptop->machine().power;
  for (int i = 0; i < 200; ++i) {
    const bool closed = i % 2 == 0;
    report(closed ? R"({"lid": "closed"})" : R"({"lid": "open"}  )");
    ASSERT_EQ(power.clamshellClosed(), closed) << i;
  }
}

TEST_F(LaptopOnAFolder, AChangeOfTheFileIsToldWithinHalfASecond) {
  const auto laptop = open();
  Seconds fastest{60};  // of all, so that a busy computer doesn't decide
  int heard = 0;
  const auto thermal = laptop->machine().power.onThermalChange([&] { ++heard; });
  for (const int count : {1, 2, 3}) {
    const auto begin = std::chrono::steady_clock::now();
    report("{\"thermal\": " + std::to_string(count) + "}");
    EXPECT_TRUE(waitFor(*laptop, [&] { return heard == count; }));
    fastest = std::min(fastest, Seconds{std::chrono::steady_clock::now() - begin});
  }
  EXPECT_LT(fastest.count(), 0.5);
}

TEST_F(LaptopOnAFolder, NewsBetweenTheFirstLookAndTheFirstObserverIsNotLost) {
  const auto laptop = open();
  PowerRegistry& power = laptop->machine().power;
  EXPECT_EQ(power.clamshellClosed(), false);
  int changes = 0, wakes = 0;
  report(R"({"lid": "closed", "events": {"didWake": 1}})");
  EXPECT_EQ(power.clamshellClosed(), true);
  const auto onChange = power.onChange([&] { ++changes; });
  const auto onWake = power.onDidWake([&] { ++wakes; });
  EXPECT_TRUE(waitFor(*laptop, [&] { return changes == 1 && wakes == 1; }));
}

TEST_F(LaptopOnAFolder, SleepAskedForByAnotherProcessIsHeardOnce) {
  const auto resident = open();
  int sleeps = 0, wakes = 0;
  PowerRegistry& power = resident->machine().power;
  const auto onSleep = power.onWillSleep([&] { ++sleeps; });
  const auto onWake = power.onPoweredOn([&] { ++wakes; });
  EXPECT_TRUE(succeeded(inChild([&] { return pmset(*open(), {"sleepnow"}).code == 0; })));
  EXPECT_TRUE(waitFor(*resident, [&] { return sleeps == 1; }));
  EXPECT_TRUE(stored().asleep);
  EXPECT_EQ(pmset(*resident, {"sleepnow"}).code, 0);
  // The sleep is told even when a wake ends it before the queue came to look.
  report(R"({"events": {"poweredOn": 1}})");
  EXPECT_TRUE(waitFor(*resident, [&] { return wakes == 1; }));
  EXPECT_EQ(sleeps, 2);
  EXPECT_FALSE(stored().asleep);
}

TEST_F(LaptopOnAFolder, AWakeIsFollowedOnceByWhoeverComesFirst) {
  const auto one = open();
  const auto two = open();
  one->machine().power.clamshellClosed();
  two->machine().power.clamshellClosed();
  EXPECT_EQ(pmset(*one, {"sleepnow"}).code, 0);
  report(R"({"events": {"didWake": 1}})");
  EXPECT_EQ(pmset(*one, {"-a", "disablesleep", "0"}).code, 0);
  EXPECT_FALSE(stored().asleep) << "nobody has to run for a wake to be one";
  EXPECT_EQ(pmset(*one, {"sleepnow"}).code, 0);
  EXPECT_EQ(pmset(*two, {"-a", "disablesleep", "0"}).code, 0);
  EXPECT_TRUE(stored().asleep) << "the same wake doesn't end the next sleep";
}

TEST_F(LaptopOnAFolder, ChangesOfTwoProcessesDontUndoEachOther) {
  report(R"({"displays": [{"id": 1, "builtin": true}, {"id": 2, "builtin": true}]})");
  constexpr int kRounds = 150;
  const auto turn = [this](std::uint32_t display) {
    const auto laptop = open();
    Displays& displays = laptop->machine().displays;
    for (int i = 0; i < kRounds; ++i) {
      const float value = static_cast<float>(i % 10) / 10.0f;
      if (displays.setBrightness(display, value) != 0 || displays.brightness(display) != value) return false;
    }
    return true;
  };
  const pid_t child = inChild([&] { return turn(2); });
  EXPECT_TRUE(turn(1));
  EXPECT_TRUE(succeeded(child));
  EXPECT_EQ(stored().display(1).brightness, 0.9);
  EXPECT_EQ(stored().display(2).brightness, 0.9);
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    EXPECT_EQ(entry.path().string().find(".tmp"), std::string::npos) << entry.path();
  }
}

TEST_F(LaptopOnAFolder, CommandsOfTwoThreadsDontUndoEachOther) {
  const auto laptop = open();
  std::thread setUp([&, machine = laptop->machine()] {
    for (int i = 0; i < 50; ++i)
      machine.commands.run("/usr/bin/sudo", {"-n", "/usr/bin/tmutil", i % 2 ? "enable" : "disable"});
  });
  for (int i = 0; i < 50; ++i) pmset(*laptop, {"-a", "disablesleep", i % 2 ? "1" : "0"});
  setUp.join();
  EXPECT_TRUE(stored().sleepDisabled && stored().autoBackup);
}

TEST_F(LaptopOnAFolder, ACrowdOfFirstUsersMakesOneLaptop) {
  std::vector<pid_t> children;
  for (int i = 0; i < 6; ++i) {
    children.push_back(inChild([&] {
      const auto laptop = open();
      return pmset(*laptop, {"-a", "disablesleep", "1"}).code == 0 && laptop->machine().power.sleepDisabled() == true;
    }));
  }
  for (const pid_t child : children) EXPECT_TRUE(succeeded(child));
  EXPECT_TRUE(stored().sleepDisabled);
}

TEST_F(LaptopOnAFolder, TheScreensAssertionEndsWithTheLastProcessThatHeldIt) {
  const auto laptop = open();
  Assertions& assertions = laptop->machine().assertions;
  Child child{[&] {
    static const auto other = open();
    other->machine().assertions.holdDisplayAwake("x");
  }};
  assertions.release(assertions.holdDisplayAwake("y"));
  EXPECT_TRUE(stored().displayAssertion) << "the other one holds it still";
  child.end();
  EXPECT_EQ(pmset(*laptop, {"-a", "disablesleep", "0"}).code, 0);
  EXPECT_FALSE(stored().displayAssertion) << "what a killed process held goes with it";
}

TEST_F(LaptopOnAFolder, WritesDownCommandsAndNotices) {
  report(R"({"refuse": ["true now"]})");
  const auto laptop = open();
  Commands& commands = laptop->machine().commands;
  EXPECT_EQ(commands.run("/bin/sh", {"-c", "echo one;\nexit 3"}).out, "one\n");
  EXPECT_EQ(commands.run("/bin/true", {"now"}).code, 1);
  EXPECT_EQ(commands.run("/no/such/tool", {}).code, -1);
  commands.spawn("/bin/true", {"later"});
  const auto child = commands.start("/bin/true", {"person"});
  ASSERT_TRUE(child);
  EXPECT_EQ(commands.wait(*child), 0);
  EXPECT_EQ(contents(folder + "/commands.log"),
            "3\t/bin/sh -c echo one; exit 3\n"
            "1\t/bin/true now\n"
            "-1\t/no/such/tool\n"
            "0\t/bin/true later\n");
  laptop->machine().notices.notify("Ti\"tle\n", "bad \xff byte");
  laptop->machine().notices.play("Tink");
  laptop->machine().notices.play("Nothing");
  EXPECT_EQ(contents(folder + "/notices.log"),
            "{\"kind\":\"notification\",\"title\":\"Ti\\\"tle\\n\",\"body\":\"bad \xef\xbf\xbd byte\"}\n"
            "{\"kind\":\"sound\",\"name\":\"Tink\"}\n");
}

TEST_F(LaptopOnAFolder, SetUpStaysInsideTheFolder) {
  report(R"({"privileged": false, "note": "kept"})");
  const auto laptop = open();
  Machine machine = laptop->machine();
  EXPECT_EQ(machine.surroundings.sudoersFolder, folder + "/root/private/etc/sudoers.d");
  put(place / "tmp/rule", "# Rule\nanna ALL=(root) NOPASSWD: TOVI_PMSET\n");
  // The usual places stand for the laptop's own, however the text names them.
  const ElevationResult result = machine.commands.runElevated(
      "/bin/mkdir -p /private/etc/sudoers.d && /usr/bin/install -m 0440 -o root -g wheel '" + (place / "tmp/rule") +
          "' /private/etc/sudoers.d/.tovi.staging && /usr/sbin/visudo -cf " + folder +
          "/root/private/etc/sudoers.d/.tovi.staging && /bin/mv -f /private/etc/sudoers.d/.tovi.staging "
          "/private/etc/sudoers.d/tovi",
      "May I?");
  EXPECT_EQ(result.outcome, ElevationResult::Outcome::done) << result.message;
  EXPECT_TRUE(machine.files.exists(folder + "/root/private/etc/sudoers.d/tovi"));
  EXPECT_EQ(pmset(*laptop, {"-a", "disablesleep", "0"}).code, 0);
  EXPECT_NE(contents(folder + "/laptop.json").find("\"note\": \"kept\""), std::string::npos);
  EXPECT_EQ(machine.commands.runElevated("/bin/rm -f /private/etc/sudoers.d/tovi", "").outcome,
            ElevationResult::Outcome::done);
  EXPECT_EQ(pmset(*laptop, {"-a", "disablesleep", "0"}).code, 1);
}

TEST_F(LaptopOnAFolder, EnergyOfRunningProcessesComesFromTheBusyTime) {
  // user nice system idle iowait irq softirq steal: idle, iowait and steal don't count.
  const auto busy = [&](long each) {
    put(place / "proc/stat", fmt::format("cpu  {0} {0} {0} 999999 999999 {0} {0} 999999 0 0\n", each));
  };
  busy(0);
  report(R"({"telemetrySeconds": 0.1, "wattsPerCore": 10})");
  LinuxOptions options;
  options.procRoot = place / "proc";
  FolderLaptop laptop(folder, surroundings(), options);
  const auto read = [&] { return laptop.machine().power.battery()->powerTelemetry.value(); };
  EXPECT_EQ(read().systemLoad, 5000) << "2 W, 0.6 W of the panel and 0.8 of 3 W";
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  busy(::sysconf(_SC_CLK_TCK));  // five seconds of one core, 50 J
  const auto now = read().systemLoad.value();
  EXPECT_GT(now, 5000 + 1000);
  EXPECT_LT(now, 5000 + 50'000 / 0.15);
}

TEST(FolderLaptop, TheVariableNamesAnAbsoluteFolder) {
  ::setenv("TOVI_MACHINE", "some/../laptop/", 1);
  EXPECT_EQ(FolderLaptop::folderFromEnvironment(), std::filesystem::current_path().string() + "/laptop");
  ::setenv("TOVI_MACHINE", "", 1);
  EXPECT_FALSE(FolderLaptop::folderFromEnvironment());
  ::unsetenv("TOVI_MACHINE");
}

}  // namespace
}  // namespace tovi
