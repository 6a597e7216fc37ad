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
  void change(void (*edit)(Config&)) {
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
  app->engine()->addHold("x", {}, {}, {});
  EXPECT_TRUE(world.sleepOff() && world.marker());
  app->willTerminate();
  EXPECT_FALSE(world.sleepOff() || world.marker());
  app.reset();
  EXPECT_FALSE(Peers::applicationRuns(laptop().machine(), world.state));
}

TEST_F(AppDelegateTest, CopiesThatServeOtherHomesAreNoneOfItsBusiness) {
  laptop().processes().add({.path = kInstalled, .arguments = {"Tovi"}});
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
    state->touch(state->path("hold"));
    laptop->setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
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
    app->willTerminate();
    EXPECT_TRUE(laptop->switches().sleepDisabled && state->exists("hold")) << "that is the first copy's";
    if (posted.empty()) return false;
    const auto request = json::parseObject(posted.front());
    EXPECT_EQ((*request)["cmd"], "open");
    EXPECT_EQ((*request)["args"], Json::object());
    EXPECT_EQ((*request)["id"].get<std::string>().size(), 36u);
    return true;
  }
  static MemoryProcess process(const std::string& path, std::vector<std::string> arguments = {"Tovi"}) {
    return {.path = path, .arguments = std::move(arguments)};
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
    std::string own;
    std::optional<MemoryProcess> other;
    bool handsOver;
    std::vector<std::string> arguments = {"Tovi"};
  } cases[] = {
      {kInstalled, installed, true},
      {built, installed, true},
      {kInstalled, process(built), false},
      {built, process(built), false},
      {kInstalled, installed, false, {"Tovi", "-x"}},
      {kInstalled, std::nullopt, false},
      {built, process(kInstalled, {"/usr/local/bin/tovi", "status"}), false},
      {built, process(kInstalled, {kInstalled, "cli", "watchdog"}), false},
      {built, process("/Applications/Other.app/Contents/MacOS/Other"), false},
  };
  for (const auto& row : cases) {
    prepare(row.own, row.arguments, row.other);
    EXPECT_EQ(handsOver(), row.handsOver) << &row - cases;
  }
}

TEST_F(AppDelegateTest, PreviewLeavesTheLockAlone) {
  laptop().forgetCommands();
  EXPECT_FALSE(launch(true).isPrimary());
  EXPECT_FALSE(world.state.exists("app.lock"));
  EXPECT_TRUE(laptop().broadcast().posted().empty());
}

TEST_F(AppDelegateTest, FirstRunWindowOpensUntilAllIsSetUp) {
  const auto opens = [&] {
    windows.shown.clear();
    launch();
    app.reset();
    return windows.shown == std::vector{Window::main};
  };
  EXPECT_TRUE(opens());
  EXPECT_TRUE(opens()) << "not introduced yet";
  laptop().defaults().set("onboardingDone", true);
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

TEST_F(AppDelegateTest, HotkeyStepsThroughTheModesAndTellsTheNewOne) {
  world.config(R"({"mode": "off", "notchIsland": true})");
  launch();
  const Field<Island::Face>& island = app->ui()->island().face;
  const auto press = [&] {
    windows.key();
    return app->engine()->config->mode;
  };
  EXPECT_EQ(press(), Mode::automatic);
  EXPECT_EQ(island.get(),
            (Island::Face{"When Busy: Nothing running · sleeps when closed", "⌃⌥⌘A to change", false, false, true}));
  laptop().advance(2.1);
  EXPECT_FALSE(island->open);
  EXPECT_EQ(press(), Mode::on);
  EXPECT_EQ(app->engine()->config->modeBeforeAlways, Mode::automatic);
  EXPECT_EQ(press(), Mode::off);
  ASSERT_EQ(laptop().notices().size(), 3u);
  EXPECT_EQ(laptop().notices().back().name, "Tink");
  EXPECT_TRUE(app->dockMenu().has_value());
}

}  // namespace
}  // namespace tovi
