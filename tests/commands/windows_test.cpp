// What there is of windows without any window system: pictures, the notch island, the menu, spoken requests.

#include <gtest/gtest.h>

#include <algorithm>

#include "app/AppDelegate.h"
#include "commands/Center.h"
#include "commands/Intents.h"
#include "ui/QuickMenu.h"

namespace tovi {
namespace {

class WindowCommands : public testing::Test, protected Center {
 protected:
  const Island::Face& face() { return ui->island().face.get(); }

  Menu menu(std::vector<std::string>* opened = nullptr) {
    return QuickMenu::build(
        engine(), [opened] { opened->push_back("panel"); }, [opened] { opened->push_back("settings"); });
  }
  // The item of that title; fails if there is none or more than one.
  MenuItem item(const std::string& title) {
    const Menu all = menu();
    EXPECT_EQ(std::ranges::count(all, title, &MenuItem::title), 1) << title;
    const auto at = std::ranges::find(all, title, &MenuItem::title);
    return at != all.end() ? *at : MenuItem{};
  }
  bool offers(const std::string& title) { return std::ranges::count(menu(), title, &MenuItem::title) > 0; }
};

TEST_F(WindowCommands, PictureStaysInTheStateFolderUnderItsOwnName) {
  const struct {
    const char* args;
    Window window;
    const char* name;  // null: refused
  } cases[] = {
      {R"({})", Window::popover, "snapshot.png"},
      {R"({"path": ""})", Window::popover, "snapshot.png"},
      {R"({"path": 5, "where": 5})", Window::popover, "snapshot.png"},
      {R"({"path": "a.PNG", "where": "window"})", Window::main, "a.PNG"},
      {R"({"path": "/etc/passwd.png", "where": "settings"})", Window::settings, "passwd.png"},
      {R"({"path": "../../x.png", "where": "elsewhere"})", Window::popover, "x.png"},
      {R"({"path": "folder/"})", Window::popover, "snapshot.png"},
      {R"({"path": "config.json"})", Window::none, nullptr},
      {R"({"path": ".png"})", Window::none, nullptr},
      {R"({"path": "a/.hidden.png"})", Window::none, nullptr},
      {R"({"path": "config.json\u0000.png"})", Window::none, nullptr},
  };
  for (const auto& row : cases) {
    windows.shown.clear();
    windows.pictures.clear();
    const Json args = *json::parseObject(row.args);
    if (row.name == nullptr) {
      EXPECT_EQ(errorOf("snapshot", args), "snapshot name must end in .png") << row.args;
      EXPECT_TRUE(windows.shown.empty()) << row.args;
      continue;
    }
    const Json reply = ask("snapshot", args);
    const std::string path = state.path(row.name);
    EXPECT_EQ(reply["ok"], true) << row.args;
    EXPECT_EQ(reply["path"], path) << row.args;
    EXPECT_TRUE(reply.contains("status"));
    EXPECT_EQ(windows.shown, std::vector{row.window}) << row.args;
    EXPECT_EQ(windows.pictures, (std::vector{std::pair{row.window, path}})) << row.args;
  }
}

TEST_F(WindowCommands, PictureWaitsUntilTheWindowHasDrawn) {
  int replies = 0;
  center->handle("snapshot", Json::object(), [&](const Json&) { ++replies; });
  laptop.advance(1.5);
  EXPECT_EQ(replies, 0);
  laptop.advance(0.2);
  EXPECT_EQ(replies, 1);
  center->handle("snapshot", Json::object(), [&](const Json&) { ++replies; });
  center.reset();
  laptop.advance(5);
  EXPECT_EQ(replies, 1) << "the program ends, and nobody is to be answered";
}

TEST_F(WindowCommands, PictureFailsWhereNothingCanBeDrawn) {
  windows.paints = false;
  EXPECT_EQ(errorOf("snapshot"), "snapshot failed");
  StatusController blind(engine(), nullptr);
  CommandCenter other(engine(), blind);
  Json reply;
  other.handle("snapshot", Json::object(), [&](const Json& answer) { reply = answer; });
  laptop.advance(2);
  EXPECT_EQ(reply, Json({{"ok", false}, {"error", "snapshot failed"}}));
  for (const char* command : {"open", "settings"}) {
    other.handle(command, Json::object(), [&](const Json& answer) { reply = answer; });
    EXPECT_EQ(reply["ok"], true) << command;
  }
  EXPECT_EQ(blind.shown(), Window::none);
}

TEST_F(WindowCommands, IslandAnnouncesOnlyWhileItIsOn) {
  EXPECT_EQ(ask("island", {{"title", "A"}})["ok"], true);
  EXPECT_EQ(face(), Island::Face{});
  ui->island().setEnabled(true);
  ask("island");
  EXPECT_EQ(face(), (Island::Face{"Tovi", engine().statusLine(), false, false, true}));
  ask("hold");
  laptop.advance(3);
  ask("island", {{"title", "Done"}, {"subtitle", ""}});
  EXPECT_EQ(face(), (Island::Face{"Done", "", true, false, true}));
  laptop.advance(3.5);
  EXPECT_TRUE(face().open) << "the second announcement has its own span";
  laptop.advance(0.2);
  EXPECT_FALSE(face().open);
  ask("island");
  ui->island().setEnabled(false);
  EXPECT_FALSE(face().open);
}

TEST_F(WindowCommands, HotkeyTellsTheNewModeInTheIsland) {
  center.reset();
  ui.reset();
  owned.reset();
  laptop.settle();
  config(R"({"mode": "off", "notchIsland": true})");
  AppDelegate app(laptop.machine(), &windows);
  app.didFinishLaunching(false);
  const Field<Island::Face>& shown = app.ui()->island().face;
  windows.key();
  EXPECT_EQ(shown.get(),
            (Island::Face{"When Busy: Nothing running · sleeps when closed", "⌃⌥⌘A to change", false, false, true}));
  laptop.advance(2.1);
  EXPECT_FALSE(shown->open);
  Config next = app.engine()->config;
  next.notchIsland = false;
  app.engine()->apply(next, true);
  windows.key();
  EXPECT_FALSE(shown->open);
  EXPECT_TRUE(app.dockMenu().has_value());
}

TEST_F(WindowCommands, MenuShowsTheModeAndChangesIt) {
  const auto checked = [&] {
    std::vector<std::string> titles;
    for (const MenuItem& row : menu()) {
      if (row.checked) titles.push_back(row.title);
    }
    return titles;
  };
  EXPECT_EQ(checked(), (std::vector<std::string>{"When Busy", "Balanced"}));
  EXPECT_EQ(menu().front().title, engine().statusLine());
  EXPECT_FALSE(menu().front().enabled);
  item("Always").action();
  item("Full Speed").action();
  EXPECT_EQ(checked(), (std::vector<std::string>{"Always", "Full Speed"}));
  EXPECT_EQ(engine().config->modeBeforeAlways, Mode::automatic);
  EXPECT_TRUE(holds(true));
  item("Off").action();
  EXPECT_TRUE(holds(false));
  std::vector<std::string> opened;
  for (const MenuItem& row : menu(&opened)) {
    if (row.title == "Open Tovi" || row.title == "Settings…") row.action();
  }
  EXPECT_EQ(opened, (std::vector<std::string>{"panel", "settings"}));
}

TEST_F(WindowCommands, MenuNamesWhatKeepsItAwakeAndLetsGoOfIt) {
  EXPECT_FALSE(offers("Keeps Awake For"));
  agent();
  engine().refreshFast();
  ASSERT_EQ(engine().sessions->size(), 1u);
  const AgentKind kind = engine().sessions->front().kind;
  EXPECT_TRUE(item(kind.name).checked);
  item(kind.name).action();
  EXPECT_EQ(engine().config->trackOnly, std::vector<std::string>{kind.id});
  EXPECT_FALSE(item(kind.name).checked);
  item(kind.name).action();
  EXPECT_TRUE(engine().config->trackOnly.empty());

  ask("hold", {{"reason", "Backup"}});
  ask("hold", {{"reason", "Render"}});
  item("End “Backup”").action();
  ASSERT_EQ(engine().holds->size(), 1u);
  EXPECT_EQ(engine().holds->front().reason, "Render");
  item("Sleep Now").action();
  EXPECT_TRUE(asleep());
  EXPECT_TRUE(engine().holds->empty());
}

TEST_F(WindowCommands, MenuAloneLetsThePersonGoBelowTheLimit) {
  const std::string title = "Keep Going Below " + std::to_string(engine().config->batteryFloor) + "%";
  EXPECT_FALSE(offers(title));
  battery(5);
  ask("hold");
  engine().refreshFast();
  ASSERT_TRUE(engine().blockedByFloor());
  EXPECT_FALSE(item(title).checked);
  item(title).action();
  EXPECT_TRUE(holds(true));
  EXPECT_TRUE(item(title).checked);
  item(title).action();
  EXPECT_TRUE(holds(false));
}

TEST_F(WindowCommands, MenuIsHeadedByWhatCouldNotBePutBack) {
  Touched first, second;
  first.path = "/Applications/Xcode.app/Contents/MacOS/Xcode";
  second.path = "/usr/bin/make";
  engine().touched = std::vector{first, second};
  EXPECT_EQ(menu().front().title, "Couldn't Put Back Xcode, make");
}

TEST_F(WindowCommands, SpokenRequestsSayWhatHappens) {
  const struct {
    int minutes;
    const char* dialog;
  } cases[] = {
      {90, "Staying awake for 1.5 hours, lid open or closed."},
      {59, "Staying awake for 59 min, lid open or closed."},
      {60, "Staying awake for 1.0 hours, lid open or closed."},
      {0, "Staying awake for 1 min, lid open or closed."},
      {99999, "Staying awake for 24.0 hours, lid open or closed."},
  };
  for (const auto& row : cases) EXPECT_EQ(Intents::keepAwake(&engine(), row.minutes).dialog, row.dialog);
  const Hold& hold = engine().holds->front();
  EXPECT_EQ(hold.reason, "Shortcut");
  EXPECT_DOUBLE_EQ(secondsBetween(hold.created, *hold.until), 90 * 60);
  EXPECT_FALSE(hold.pid || hold.owner);

  EXPECT_EQ(Intents::letSleep(&engine()).dialog,
            "Done. It sleeps now, and agents can't keep it awake until you open the lid again.");
  EXPECT_TRUE(engine().holds->empty());

  const auto status = Intents::status(&engine());
  EXPECT_EQ(status.value, status.dialog);
  EXPECT_TRUE(status.dialog.starts_with(engine().statusLine() + ". Battery 80%, about ")) << status.dialog;
  EXPECT_TRUE(status.dialog.ends_with(" with the lid closed.")) << status.dialog;
  engine().battery = std::optional<BatteryReading>{};
  EXPECT_EQ(Intents::status(&engine()).dialog, engine().statusLine());

  withoutSetup();
  EXPECT_EQ(Intents::keepAwake(&engine(), 5).dialog,
            "Tovi needs its one-time setup first. Open Tovi from the menu bar.");
  EXPECT_EQ(Intents::keepAwake(nullptr, 5).dialog, "Open Tovi first.");
  EXPECT_EQ(Intents::letSleep(nullptr), Intents::Result{"Tovi isn't running."});
  EXPECT_EQ(Intents::status(nullptr), Intents::Result{"Tovi isn't running."});
}

}  // namespace
}  // namespace tovi
