// What each command does and how it fails.

#include <gtest/gtest.h>

#include "commands/AppLookup.h"
#include "commands/Center.h"
#include "commands/PanelFormatTime.h"

namespace tovi {
namespace {

class CommandTest : public testing::Test, protected Center {
 protected:
  static bool succeeded(const Json& reply) { return reply.value("ok", false) && reply.contains("status"); }

  void installApp(const std::string& name, std::optional<std::string> identifier, Pid pid, bool regular = true) {
    const std::string path = "/Applications/" + name + ".app";
    laptop.files().put(path + "/Contents/Info.plist", "");
    laptop.edit([&](LaptopReport& report) {
      report.applications.push_back({pid, name, std::move(identifier), path, regular});
    });
  }
};

TEST_F(CommandTest, WrongArgumentsGiveTheirText) {
  const std::string pid = "pid must be a running process id";
  const std::string floor = "Going below the battery limit can only be allowed in Tovi itself";
  const std::vector<std::tuple<const char*, const char*, std::string>> cases{
      {"", "{}", "Unknown command "},
      {"Status", "{}", "Unknown command Status"},
      {"mode", "{}", "mode must be off, when_busy (auto) or always"},
      {"mode", R"({"mode": 1})", "mode must be off, when_busy (auto) or always"},
      {"track", R"({"agent": "ghost"})", "no agent ghost is running"},
      {"track", R"({"agent": 5})", "no agent ? is running"},
      {"release_own", R"({"id": "x"})", "needs id and pid"},
      {"release_own", R"({"id": 5, "pid": 5})", "needs id and pid"},
      {"release_own", R"({"id": "x", "pid": 5})", "no hold x made by this session"},
      {"release_pid", R"({"pid": true})", "needs pid"},
      {"hold", R"({"pid": 1})", pid},
      {"hold", R"({"pid": null})", pid},
      {"hold", R"({"pid": 2147483648})", pid},
      {"hold", R"({"pid": 99999})", pid},
      {"preset", R"({"preset": "fastest"})", "preset must be max_battery, balanced or full_speed"},
      {"rule", R"({"rule": "pause"})", "Couldn't find an app called ?"},
      {"rule", R"({"app": "Nope", "rule": "pause"})", "Couldn't find an app called Nope"},
      {"watch", R"({"app": "  "})", "needs app"},
      {"watch", R"({"app": "Not/Here"})", "Couldn't find Not/Here"},
      {"watch", R"({"app": "make", "remove": true})", "make isn't on the list"},
      {"agent", R"({"name": "x"})", "needs name and executable"},
      {"agent", R"({"executable": "x"})", "needs name and executable"},
      {"override_floor", "{}", floor},
      {"override_floor", R"({"on": "yes"})", floor},
  };
  const Config before = engine().config;
  for (const auto& [command, args, error] : cases) {
    EXPECT_EQ(errorOf(command, Json::parse(args)), error) << command << args;
  }
  EXPECT_EQ(engine().config.get(), before);
  EXPECT_TRUE(engine().holds->empty());
  engine().overrideFloor(true);
  EXPECT_EQ(ask("override_floor", {{"on", "no"}})["below_floor_allowed"], false);
  EXPECT_FALSE(engine().floorOverride);
  withoutSetup();
  EXPECT_EQ(errorOf("wake"), "Tovi needs its one-time setup first. Open Tovi from the menu bar and click Continue.");
}

TEST_F(CommandTest, ModeTakesPeoplesWordsAndLimits) {
  ask("preset", {{"preset", "Full Speed"}});
  EXPECT_EQ(engine().config->preset, Preset::speed);
  EXPECT_TRUE(succeeded(ask("mode", {{"mode", "off"}})));
  EXPECT_EQ(engine().config->mode, Mode::off);
  ask("mode", {{"mode", "when busy"}});
  EXPECT_EQ(engine().config->mode, Mode::automatic);
  ask("mode", {{"mode", "Always On"}});
  EXPECT_EQ(engine().config->mode, Mode::on);
  EXPECT_FALSE(engine().onUntil());
  for (const auto& [minutes, expected] :
       std::vector<std::pair<Json, double>>{{"90.9", 90}, {0.2, 1}, {0, 1}, {20000, 10080}}) {
    ask("mode", {{"mode", "on"}, {"minutes", minutes}});
    EXPECT_EQ(engine().onUntil(), laptop.now() + expected * 60) << minutes;
  }
  ask("mode", {{"mode", "on"}, {"until_hour", 10}, {"minutes", 5}});
  EXPECT_EQ(engine().onUntil(), PanelFormatTime::next(10, laptop.now()));
}

TEST(NextHour, IsMoreThanAMinuteAway) {
  const Date eight = PanelFormatTime::next(8, dateFromUnix(1'767'600'000));
  EXPECT_EQ(PanelFormatTime::next(8, eight + -61), eight);
  EXPECT_EQ(PanelFormatTime::next(8, eight + -60), eight + 86400);
  EXPECT_EQ(PanelFormatTime::next(8, eight + 1), eight + 86400);
  EXPECT_EQ(PanelFormatTime::next(99, eight), PanelFormatTime::next(23, eight));
  EXPECT_EQ(PanelFormatTime::next(-5, eight), PanelFormatTime::next(0, eight));
}

TEST_F(CommandTest, TrackTogglesOrSetsAgentsThatAreKnown) {
  agent();
  engine().refreshFast();
  for (const Json& args : {Json{{"agent", "claude-code"}}, Json{{"agent", "claude-code"}, {"keeps", false}}}) {
    EXPECT_TRUE(succeeded(ask("track", args)));
    EXPECT_EQ(engine().config->trackOnly, std::vector<std::string>{"claude-code"}) << args;
  }
  // It is remembered for as long as it stands in the list, running or not.
  engine().sessions = std::vector<AgentSession>{};
  EXPECT_TRUE(succeeded(ask("track", {{"agent", "claude-code"}})));
  EXPECT_TRUE(engine().config->trackOnly.empty());
}

TEST_F(CommandTest, HoldsAreMadeWithTheirBoundsAndReleased) {
  const Pid tool = program("/usr/bin/make"), owner = program("/usr/bin/claude");
  const Json made =
      ask("hold", {{"reason", std::string(79, 'r') + "äxx"}, {"minutes", "90"}, {"pid", tool}, {"owner", owner}});
  ASSERT_TRUE(succeeded(made));
  EXPECT_EQ(made["hold"]["reason"], std::string(79, 'r') + "ä");
  EXPECT_EQ(made["hold"]["pid"], tool);
  EXPECT_TRUE(made["hold"]["until"].is_string());
  EXPECT_EQ(engine().holds->at(0).owner, owner);

  const Json second = ask("hold", {{"owner", owner}});
  EXPECT_EQ(second["hold"].size(), 2u) << second;
  EXPECT_EQ(ask("release_own", {{"id", second["hold"]["id"]}, {"pid", owner}})["released"], 1);
  EXPECT_EQ(ask("release", {{"id", "nothing"}})["released"], 0);
  ask("hold");
  EXPECT_EQ(ask("release_pid", {{"pid", std::to_string(owner)}})["released"], 1);
  EXPECT_EQ(ask("release")["released"], 1);
  EXPECT_TRUE(holds(false));
}

TEST_F(CommandTest, WakeHoldsForAnHourOrAtLeastFiveMinutes) {
  for (const auto& [given, minutes] : std::vector<std::pair<Json, double>>{{Json(), 60}, {1, 5}, {9999, 1440}}) {
    EXPECT_EQ(ask("wake", {{"minutes", given}})["hold"]["reason"], "Woken from your phone");
    EXPECT_EQ(engine().holds->back().until, engine().holds->back().created + minutes * 60) << given;
  }
}

TEST_F(CommandTest, RuleIsSetAndTakenBackByName) {
  installApp("Xcode", "com.apple.dt.Xcode", 700);
  installApp("Bare", std::nullopt, 701);
  Json reply = ask("rule", {{"app", "xcode"}, {"rule", "Pause"}});
  EXPECT_TRUE(reply["app"] == "Xcode" && reply["rule"] == "pause") << reply;
  EXPECT_EQ(engine().config->appRules.at("com.apple.dt.Xcode"), AppRule::pause);
  reply = ask("rule", {{"app", "com.apple.dt.Xcode"}, {"rule", "Default"}});
  EXPECT_TRUE(engine().config->appRules.empty());
  EXPECT_EQ(reply["rule"],
            std::string{rawValue(engine().rule("com.apple.dt.Xcode", Preset::balanced))} + " (preset default)");
  EXPECT_EQ(errorOf("rule", {{"app", "Xcode"}, {"rule", "freeze"}}), "rule must be leave, slow, pause or default");
  EXPECT_EQ(errorOf("rule", {{"app", "Xcode"}}), "rule must be leave, slow, pause or default");
  EXPECT_EQ(errorOf("rule", {{"app", "Bare"}, {"rule", "slow"}}), "Bare has no bundle id");
}

TEST_F(CommandTest, AppIsFoundByPathIdentifierNameAndPartOfItsName) {
  installApp("Final Cut", "com.example.cut", 700);
  installApp("Final Draft", "com.example.draft", 701);
  installApp("Helper Agent", "com.example.helper", 702, false);
  laptop.edit([](LaptopReport& report) {
    report.applications.push_back({703, "Homeless", "com.example.homeless", std::nullopt, true});
  });
  laptop.files().put("/home/anna/Applications/Tool.app/Contents/Info.plist", "");
  const FoundApp cut{"Final Cut", "com.example.cut", "/Applications/Final Cut.app"};
  for (const auto& [text, expected] : std::vector<std::pair<const char*, std::optional<FoundApp>>>{
           {"/Applications/Final Cut.app", cut},
           {" com.example.cut ", cut},
           {"cut", cut},
           {"Final", {}},     // two have it
           {"agent", {}},     // no ordinary application
           {"Homeless", {}},  // without a bundle it is no hit
           {"Tool", FoundApp{"Tool", std::nullopt, "/home/anna/Applications/Tool.app"}},
           {"", {}}}) {
    const auto found = resolveApp(laptop.machine(), text);
    EXPECT_TRUE(found == expected) << text << (found ? ": " + found->path : "");
  }
}

TEST_F(CommandTest, WatchListGrowsAndShrinks) {
  installApp("Xcode", "com.apple.dt.Xcode", 700);
  EXPECT_EQ(ask("watch", {{"app", " xcode "}})["added"], "Xcode");
  const Json reply = ask("watch", {{"app", "someTool"}});
  EXPECT_EQ(reply["added"], "someTool");
  EXPECT_EQ(reply["watch_list"], Json({"Xcode", "someTool"}));
  EXPECT_EQ(engine().config->watchedApps.front().id, "/Applications/Xcode.app");
  EXPECT_EQ(errorOf("watch", {{"app", "other"}, {"remove", true}}), "other isn't on the list");
  EXPECT_EQ(ask("watch", {{"app", "SOMETOOL"}, {"remove", "yes"}})["removed"], "someTool");

  // An entry whose application is gone can still be named, by the name of its bundle too.
  engine().addWatched({"/Volumes/Old/Blender.app", "Blender 4"});
  EXPECT_EQ(ask("watch", {{"app", "blender"}, {"remove", true}})["removed"], "Blender 4");
  EXPECT_EQ(ask("watch", {{"app", "/Applications/Xcode.app"}, {"remove", true}})["watch_list"], Json::array());
}

TEST_F(CommandTest, AgentIsReplacedByNameAndRemoved) {
  ask("agent", {{"name", "mine"}, {"executable", "old"}});
  ask("agent", {{"name", "mine"}, {"executable", "new"}, {"idle_watts", "0.5"}});
  EXPECT_EQ(engine().config->customAgents, (std::vector{CustomAgent{"mine", {"new"}, 0.5}}));
  EXPECT_TRUE(succeeded(ask("agent", {{"name", "mine"}, {"executable", "x"}, {"remove", true}})));
  EXPECT_TRUE(engine().config->customAgents.empty());
}

TEST_F(CommandTest, WindowsAreShownAndThePanelCountsAsOpen) {
  ask("open");
  EXPECT_TRUE(engine().panelOpen);
  ask("open", {{"where", "window"}});
  EXPECT_FALSE(engine().panelOpen);
  ask("settings");
  ask("open", {{"where", 5}});
  EXPECT_EQ(windows.shown, (std::vector{Window::popover, Window::main, Window::settings, Window::popover}));
  ui->closed(Window::main);
  EXPECT_TRUE(engine().panelOpen);
  ui->closed(Window::popover);
  EXPECT_FALSE(engine().panelOpen);
  StatusController(engine(), nullptr).showPopover();
  EXPECT_FALSE(engine().panelOpen) << "nobody can see that one";
}

}  // namespace
}  // namespace tovi
