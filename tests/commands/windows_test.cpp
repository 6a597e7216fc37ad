// What there is of windows without any window system: pictures, the notch island, the menu, spoken requests.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "commands/Center.h"
#include "commands/Intents.h"
#include "ui/QuickMenu.h"

namespace tovi {
namespace {

class WindowCommands : public testing::Test, protected Center {
 protected:
  const Island::Face& face() { return ui->island().face.get(); }

  Menu menu(std::string* opened = nullptr) {
    return QuickMenu::build(
        engine(), [opened] { *opened += "panel "; }, [opened] { *opened += "settings "; });
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
  const auto asked = [&](const char* args) {
    windows.shown.clear();
    windows.pictures.clear();
    return ask("snapshot", *json::parseObject(args));
  };
  for (const auto& [args, window, name] : std::vector<std::tuple<const char*, Window, const char*>>{
           {"{}", Window::popover, "snapshot.png"},
           {R"({"path": 5, "where": 5})", Window::popover, "snapshot.png"},
           {R"({"path": "a.PNG", "where": "window"})", Window::main, "a.PNG"},
           {R"({"path": "/etc/passwd.png", "where": "settings"})", Window::settings, "passwd.png"},
           {R"({"path": "../../x.png", "where": "elsewhere"})", Window::popover, "x.png"}}) {
    EXPECT_EQ(asked(args)["path"], state.path(name)) << args;
    EXPECT_EQ(windows.pictures, (std::vector{std::pair{window, state.path(name)}})) << args;
    EXPECT_EQ(windows.shown, std::vector{window}) << args;
  }
  for (const char* args : {R"({"path": ".png"})", R"({"path": "config.json"})", R"({"path": "a/.hidden.png"})",
                           R"({"path": "config.json\u0000.png"})"}) {
    EXPECT_EQ(asked(args)["error"], "snapshot name must end in .png") << args;
    EXPECT_TRUE(windows.shown.empty()) << args;
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
  for (const char* command : {"snapshot", "open", "settings"}) {
    other.handle(command, Json::object(), [&](const Json& answer) { reply = answer; });
    laptop.advance(2);
    EXPECT_EQ(reply["ok"], std::string(command) != "snapshot");
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

TEST_F(WindowCommands, MenuShowsTheModeAndChangesIt) {
  EXPECT_EQ(menu().front().title, engine().statusLine());
  EXPECT_FALSE(menu().front().enabled);
  EXPECT_TRUE(item("When Busy").checked && item("Balanced").checked && !item("Always").checked);
  item("Always").action();
  item("Full Speed").action();
  EXPECT_TRUE(item("Always").checked && item("Full Speed").checked && !item("When Busy").checked);
  EXPECT_EQ(engine().config->modeBeforeAlways, Mode::automatic);
  EXPECT_TRUE(holds(true));
  item("Off").action();
  EXPECT_TRUE(holds(false));
  std::string opened;
  for (const MenuItem& row : menu(&opened)) {
    if (row.title == "Open Tovi" || row.title == "Settings…") row.action();
  }
  EXPECT_EQ(opened, "panel settings ");
  Touched left;
  left.path = "/Applications/Xcode.app/Contents/MacOS/Xcode";
  engine().touched = std::vector{left};
  EXPECT_EQ(menu().front().title, "Couldn't Put Back Xcode");
}

TEST_F(WindowCommands, MenuNamesWhatKeepsItAwakeAndLetsGoOfIt) {
  EXPECT_FALSE(offers("Keeps Awake For"));
  agent();
  engine().refreshFast();
  for (const bool kept : {false, true}) {
    item("Claude Code").action();
    EXPECT_EQ(item("Claude Code").checked, kept);
    EXPECT_EQ(engine().config->trackOnly.empty(), kept);
  }
  ask("hold", {{"reason", "Backup"}});
  ask("hold", {{"reason", "Render"}});
  item("End “Backup”").action();
  EXPECT_TRUE(engine().holds->size() == 1 && engine().holds->front().reason == "Render");
  item("Sleep Now").action();
  EXPECT_TRUE(asleep());
}

TEST_F(WindowCommands, MenuAloneLetsThePersonGoBelowTheLimit) {
  const std::string title = "Keep Going Below " + std::to_string(engine().config->batteryFloor) + "%";
  EXPECT_FALSE(offers(title));
  battery(5);
  ask("hold");
  engine().refreshFast();
  ASSERT_TRUE(engine().blockedByFloor());
  for (const bool goesOn : {true, false}) {
    EXPECT_EQ(item(title).checked, !goesOn);
    item(title).action();
    EXPECT_TRUE(holds(goesOn));
  }
}

TEST_F(WindowCommands, SpokenRequestsSayWhatHappens) {
  for (const auto& [minutes, span] :
       std::map<int, const char*>{{90, "1.5 hours"}, {59, "59 min"}, {0, "1 min"}, {99999, "24.0 hours"}}) {
    EXPECT_EQ(Intents::keepAwake(&engine(), minutes).dialog,
              std::string("Staying awake for ") + span + ", lid open or closed.");
  }
  EXPECT_EQ(engine().holds->front().reason, "Shortcut");
  EXPECT_FALSE(engine().holds->front().pid || engine().holds->front().owner);
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
