// Start and end of the resident application, and how copies of it stand beside each other.

#include "app/AppDelegate.h"

#include <gtest/gtest.h>

#include "commands/Center.h"
#include "commands/Peers.h"

namespace tovi {
namespace {

constexpr char kInstalled[] = "/Applications/Tovi.app/Contents/MacOS/Tovi";

class AppDelegateTest : public testing::Test {
 protected:
  World world;
  FakeWindows windows;
  std::optional<AppDelegate> app;

  MemoryLaptop& laptop() { return world.laptop; }

  AppDelegate& launch(bool preview = false) {
    app.emplace(laptop().machine(), &windows);
    app->didFinishLaunching(preview);
    return *app;
  }
  void change(const std::function<void(Config&)>& edit) {
    Config next = app->engine()->config;
    edit(next);
    app->engine()->apply(next, true);
  }
};

TEST_F(AppDelegateTest, FirstCopyIsPrimaryAndListens) {
  launch();
  EXPECT_TRUE(app->isPrimary());
  EXPECT_EQ(laptop().machine().broadcast.post("x"), Broadcast::Sent::yes);
  EXPECT_TRUE(Peers::applicationRuns(laptop().machine(), world.state));
  app.reset();
  EXPECT_FALSE(Peers::applicationRuns(laptop().machine(), world.state));
}

TEST_F(AppDelegateTest, CopiesThatServeOtherHomesAreNoneOfItsBusiness) {
  MemoryProcess other;
  other.path = kInstalled;
  other.arguments = {"Tovi"};
  laptop().processes().add(other);
  EXPECT_TRUE(launch().isPrimary());
}

// A copy on a laptop where somebody has the lock already.
class SecondCopy : public testing::Test {
 protected:
  // `other`: a process that may be the holder.
  void prepare(const std::string& own, std::vector<std::string> arguments, std::optional<MemoryProcess> other) {
    app.reset();
    first.reset();
    laptop =
        std::make_unique<MemoryLaptop>(MemoryLaptop::Options{.executable = own, .arguments = std::move(arguments)});
    if (other) laptop->processes().add(*other);
    state.emplace(laptop->machine());
    first = Peers::takeLock(laptop->machine(), *state);
    ASSERT_TRUE(first);
    app.emplace(laptop->machine(), &windows);
  }
  bool handsOver() {
    app->didFinishLaunching(false);
    EXPECT_FALSE(app->isPrimary());
    EXPECT_EQ(app->ui(), nullptr);
    EXPECT_EQ(app->commands(), nullptr);
    const auto& posted = laptop->broadcast().posted();
    bool later = false;
    laptop->queue().post([&] { later = true; });
    laptop->queue().run();
    EXPECT_EQ(later, posted.empty()) << "it ends exactly if it has handed over";
    if (posted.empty()) return false;
    const auto request = json::parseObject(posted.front());
    EXPECT_EQ((*request)["cmd"], "open");
    EXPECT_EQ((*request)["args"], Json::object());
    EXPECT_EQ((*request)["id"].get<std::string>().size(), 36u);
    return true;
  }
  static MemoryProcess process(const std::string& path, std::vector<std::string> arguments = {"Tovi"}) {
    MemoryProcess made;
    made.path = path;
    made.arguments = std::move(arguments);
    return made;
  }

  FakeWindows windows;
  std::unique_ptr<MemoryLaptop> laptop;
  std::optional<StateFiles> state;
  std::unique_ptr<Files::Lock> first;
  std::optional<AppDelegate> app;
};

TEST_F(SecondCopy, HandsOverOnlyToAnInstalledFirstCopy) {
  const std::string built = "/home/anna/build/Tovi";
  const auto installed = process(kInstalled);
  const struct {
    const char* what;
    std::string own;
    std::vector<std::string> arguments;
    std::optional<MemoryProcess> other;
    bool handsOver;
  } cases[] = {
      {"installed, beside an installed one", kInstalled, {"Tovi"}, installed, true},
      {"a build, beside an installed one", built, {"Tovi"}, installed, true},
      {"installed, beside a build", kInstalled, {"Tovi"}, process(built), false},
      {"a build, beside a build", built, {"Tovi"}, process(built), false},
      {"with an argument of its own", kInstalled, {"Tovi", "-x"}, installed, false},
      {"beside a holder of which nothing is known", kInstalled, {"Tovi"}, std::nullopt, false},
      {"beside a command line", built, {"Tovi"}, process(kInstalled, {"/usr/local/bin/tovi", "status"}), false},
      {"beside a watchdog", built, {"Tovi"}, process(kInstalled, {kInstalled, "cli", "watchdog"}), false},
      {"beside another program", built, {"Tovi"}, process("/Applications/Other.app/Contents/MacOS/Other"), false},
  };
  for (const auto& row : cases) {
    prepare(row.own, row.arguments, row.other);
    EXPECT_EQ(handsOver(), row.handsOver) << row.what;
  }
}

TEST_F(SecondCopy, TouchesNothingOfTheFirst) {
  prepare(kInstalled, {"Tovi"}, std::nullopt);
  state->touch(state->path("hold"));
  laptop->setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
  app->didFinishLaunching(false);
  laptop->advance(60);
  app->willTerminate();
  EXPECT_TRUE(laptop->switches().sleepDisabled);
  EXPECT_TRUE(state->exists("hold"));
  app->shouldHandleReopen();
  EXPECT_TRUE(windows.shown.empty());
}

TEST_F(AppDelegateTest, PreviewLeavesTheLockAlone) {
  laptop().forgetCommands();
  EXPECT_FALSE(launch(true).isPrimary());
  EXPECT_FALSE(world.state.exists("app.lock"));
  EXPECT_TRUE(laptop().broadcast().posted().empty());
}

TEST_F(AppDelegateTest, FirstRunWindowOpensUntilAllIsSetUp) {
  auto& defaults = laptop().defaults();
  const auto opens = [&] {
    windows.shown.clear();
    launch();
    const bool opened = windows.shown == std::vector{Window::main};
    app.reset();
    return opened;
  };
  EXPECT_TRUE(opens());
  EXPECT_EQ(defaults.flag("launchedBefore"), true);
  EXPECT_TRUE(opens()) << "not introduced yet";
  defaults.set("onboardingDone", true);
  EXPECT_FALSE(opens());
  laptop().edit([](LaptopReport& report) { report.privileged = false; });
  EXPECT_TRUE(opens());
}

TEST_F(AppDelegateTest, AppearanceFollowsTheSettingsAndChangesNothingTwice) {
  launch();
  EXPECT_EQ(windows.dock, (std::vector{false}));
  EXPECT_EQ(windows.looks, (std::vector{AppearanceChoice::system}));
  EXPECT_TRUE(windows.key);
  change([](Config& config) { config.quietMinutes = 9; });
  EXPECT_EQ(windows.dock.size() + windows.looks.size(), 2u);
  change([](Config& config) {
    config.showInDock = true;
    config.hotkey = false;
    config.appearance = AppearanceChoice::dark;
  });
  EXPECT_EQ(windows.dock, (std::vector{false, true}));
  EXPECT_EQ(windows.looks.back(), AppearanceChoice::dark);
  EXPECT_FALSE(windows.key);
  // A window in use isn't hidden, and the change isn't made up for later.
  windows.ordinary = true;
  change([](Config& config) { config.showInDock = false; });
  windows.ordinary = false;
  change([](Config& config) { config.hotkey = true; });
  EXPECT_EQ(windows.dock, (std::vector{false, true}));
  EXPECT_TRUE(windows.key);
}

TEST_F(AppDelegateTest, HotkeyStepsThroughTheModesAndBackToTheStart) {
  launch();
  const auto press = [&] {
    windows.key();
    return app->engine()->config->mode;
  };
  change([](Config& config) { config.mode = Mode::off; });
  EXPECT_EQ(press(), Mode::automatic);
  EXPECT_EQ(press(), Mode::on);
  EXPECT_EQ(app->engine()->config->modeBeforeAlways, Mode::automatic);
  EXPECT_EQ(press(), Mode::off);
  ASSERT_EQ(laptop().notices().size(), 3u);
  EXPECT_EQ(laptop().notices().back().name, "Tink");
}

TEST_F(AppDelegateTest, TerminationGivesSleepBack) {
  launch();
  app->engine()->addHold("x", std::nullopt, std::nullopt, std::nullopt);
  ASSERT_TRUE(world.sleepOff());
  app->willTerminate();
  EXPECT_FALSE(world.sleepOff());
  EXPECT_FALSE(world.marker());
}

}  // namespace
}  // namespace tovi
