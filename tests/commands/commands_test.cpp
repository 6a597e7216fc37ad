// What each command does and how it fails.

#include <gtest/gtest.h>

#include <chrono>

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
  const char kMode[] = "mode must be off, when_busy (auto) or always";
  const char kPid[] = "pid must be a running process id";
  const char kFloor[] = "Going below the battery limit can only be allowed in Tovi itself";
  const char kRule[] = "Couldn't find an app called ";
  const struct {
    const char* command;
    Json args;
    std::string error;
  } cases[] = {
      {"", Json::object(), "Unknown command "},
      {"Status", Json::object(), "Unknown command Status"},
      {"popover", Json::object(), "Unknown command popover"},
      {"mode", Json::object(), kMode},
      {"mode", {{"mode", "sometimes"}}, kMode},
      {"mode", {{"mode", 1}}, kMode},
      {"track", {{"agent", "ghost"}}, "no agent ghost is running"},
      {"track", {{"agent", 5}}, "no agent ? is running"},
      {"release_own", {{"id", "x"}}, "needs id and pid"},
      {"release_own", {{"pid", 5}}, "needs id and pid"},
      {"release_own", {{"id", 5}, {"pid", "five"}}, "needs id and pid"},
      {"release_own", {{"id", "x"}, {"pid", 5}}, "no hold x made by this session"},
      {"release_pid", Json::object(), "needs pid"},
      {"release_pid", {{"pid", true}}, "needs pid"},
      {"hold", {{"pid", 1}}, kPid},
      {"hold", {{"pid", "abc"}}, kPid},
      {"hold", {{"pid", nullptr}}, kPid},
      {"hold", {{"pid", 2147483648}}, kPid},
      {"hold", {{"pid", 99999}}, kPid},
      {"preset", {{"preset", "fastest"}}, "preset must be max_battery, balanced or full_speed"},
      {"preset", {{"preset", true}}, "preset must be max_battery, balanced or full_speed"},
      {"rule", {{"rule", "pause"}}, std::string{kRule} + "?"},
      {"rule", {{"app", "Nope"}, {"rule", "pause"}}, std::string{kRule} + "Nope"},
      {"watch", Json::object(), "needs app"},
      {"watch", {{"app", "  "}}, "needs app"},
      {"watch", {{"app", 5}}, "needs app"},
      {"watch", {{"app", "Not/Here"}}, "Couldn't find Not/Here"},
      {"watch", {{"app", std::string(65, 'x')}}, "Couldn't find " + std::string(65, 'x')},
      {"watch", {{"app", "make"}, {"remove", true}}, "make isn't on the list"},
      {"agent", {{"name", "x"}}, "needs name and executable"},
      {"agent", {{"executable", "x"}}, "needs name and executable"},
      {"agent", {{"name", "x"}, {"remove", true}}, "needs name and executable"},
      {"override_floor", Json::object(), kFloor},
      {"override_floor", {{"on", "yes"}}, kFloor},
      {"override_floor", {{"on", "perhaps"}}, kFloor},
  };
  const Config before = engine().config;
  for (const auto& row : cases) EXPECT_EQ(errorOf(row.command, row.args), row.error) << row.command << row.args;
  EXPECT_EQ(engine().config.get(), before);
  EXPECT_TRUE(engine().holds->empty());
}

TEST_F(CommandTest, ModeTakesPeoplesWordsAndLimits) {
  EXPECT_TRUE(succeeded(ask("mode", {{"mode", "off"}})));
  EXPECT_EQ(engine().config->mode, Mode::off);
  ask("mode", {{"mode", "when busy"}});
  EXPECT_EQ(engine().config->mode, Mode::automatic);
  ask("mode", {{"mode", "Always On"}});
  EXPECT_EQ(engine().config->mode, Mode::on);
  EXPECT_FALSE(engine().onUntil());
  const struct {
    Json minutes;
    double expected;
  } cases[] = {{90, 90}, {"90.9", 90}, {0.2, 1}, {0, 1}, {20000, 10080}};
  for (const auto& row : cases) {
    ask("mode", {{"mode", "on"}, {"minutes", row.minutes}});
    ASSERT_TRUE(engine().onUntil()) << row.minutes;
    EXPECT_DOUBLE_EQ(secondsBetween(laptop.now(), *engine().onUntil()) / 60, row.expected) << row.minutes;
  }
}

TEST_F(CommandTest, ModeUntilAnHourGoesToTheNextOfItsKind) {
  ask("mode", {{"mode", "on"}, {"until_hour", 10}, {"minutes", 5}});
  ASSERT_TRUE(engine().onUntil());
  const double minutes = secondsBetween(laptop.now(), PanelFormatTime::next(10, laptop.now())) / 60;
  EXPECT_DOUBLE_EQ(secondsBetween(laptop.now(), *engine().onUntil()) / 60, minutes);
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
  ASSERT_EQ(engine().sessions->size(), 1u);
  const std::string id = engine().sessions->front().kind.id;
  const auto tracked = [&] { return engine().config->trackOnly == std::vector<std::string>{id}; };
  EXPECT_TRUE(succeeded(ask("track", {{"agent", id}})));
  EXPECT_TRUE(tracked());
  ask("track", {{"agent", id}, {"keeps", false}});
  EXPECT_TRUE(tracked());
  // It is remembered for as long as it stands in the list, running or not.
  engine().sessions = std::vector<AgentSession>{};
  EXPECT_TRUE(succeeded(ask("track", {{"agent", id}})));
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
  EXPECT_TRUE(holds(true));
  ASSERT_EQ(engine().holds->size(), 1u);
  EXPECT_EQ(engine().holds->front().owner, owner);

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
  const struct {
    Json args;
    double minutes;
  } cases[] = {{Json::object(), 60}, {{{"minutes", 1}}, 5}, {{{"minutes", 9999}}, 1440}, {{{"minutes", "x"}}, 60}};
  for (const auto& row : cases) {
    EXPECT_EQ(ask("wake", row.args)["hold"]["reason"], "Woken from your phone");
    const Hold& hold = engine().holds->back();
    EXPECT_DOUBLE_EQ(secondsBetween(hold.created, *hold.until) / 60, row.minutes) << row.args;
  }
}

TEST_F(CommandTest, HoldAndWakeNeedTheSetupFirst) {
  withoutSetup();
  for (const char* command : {"hold", "wake"}) {
    EXPECT_EQ(errorOf(command, {{"pid", 1}}),
              "Tovi needs its one-time setup first. Open Tovi from the menu bar and click Continue.");
  }
  EXPECT_TRUE(engine().holds->empty());
}

TEST_F(CommandTest, SleepNowEndsWhatKeepsItAwake) {
  ask("hold");
  ASSERT_TRUE(holds(true));
  EXPECT_TRUE(succeeded(ask("sleep_now")));
  EXPECT_TRUE(asleep());
}

TEST_F(CommandTest, FloorCanOnlyBeTightened) {
  engine().overrideFloor(true);
  EXPECT_EQ(ask("override_floor", {{"on", "no"}})["below_floor_allowed"], false);
  EXPECT_FALSE(engine().floorOverride);
}

TEST_F(CommandTest, PresetTakesPeoplesWords) {
  ask("preset", {{"preset", "Full Speed"}});
  EXPECT_EQ(engine().config->preset, Preset::speed);
}

TEST_F(CommandTest, RuleIsSetAndTakenBackByName) {
  installApp("Xcode", "com.apple.dt.Xcode", 700);
  installApp("Bare", std::nullopt, 701);
  Json reply = ask("rule", {{"app", "xcode"}, {"rule", "Pause"}});
  EXPECT_EQ(reply["app"], "Xcode");
  EXPECT_EQ(reply["rule"], "pause");
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
  const struct {
    const char* text;
    std::optional<FoundApp> found;
  } cases[] = {
      {"/Applications/Final Cut.app", cut},
      {" com.example.cut ", cut},
      {"FINAL CUT", cut},
      {"cut", cut},
      {"Final", {}},     // two have it
      {"agent", {}},     // no ordinary application
      {"Homeless", {}},  // without a bundle it is no hit
      {"Tool", FoundApp{"Tool", std::nullopt, "/home/anna/Applications/Tool.app"}},
      {"/Applications/None.app", {}},
      {"", {}},
  };
  for (const auto& row : cases) {
    const auto found = resolveApp(laptop.machine(), row.text);
    ASSERT_EQ(found.has_value(), row.found.has_value()) << row.text;
    if (!found) continue;
    EXPECT_TRUE(*found == *row.found) << row.text << ": " << found->name << ", " << found->path;
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
  ASSERT_EQ(engine().config->customAgents.size(), 1u);
  EXPECT_EQ(engine().config->customAgents[0], (CustomAgent{"mine", {"new"}, 0.5}));
  EXPECT_TRUE(succeeded(ask("agent", {{"name", "mine"}, {"executable", "x"}, {"remove", true}})));
  EXPECT_TRUE(engine().config->customAgents.empty());
}

TEST_F(CommandTest, ConfigTellsPathAndContent) {
  const Json reply = ask("config");
  EXPECT_EQ(reply["path"], Config::path(state));
  EXPECT_EQ(reply["config"], engine().config->toJson());
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
}

TEST_F(CommandTest, PanelThatNobodyCanSeeDoesNotSpeedSamplingUp) {
  StatusController blind(engine(), nullptr);
  blind.showPopover();
  EXPECT_FALSE(engine().panelOpen);
}

TEST_F(CommandTest, QuitAnswersBeforeTheEnd) {
  std::optional<Json> reply;
  center->handle("quit", Json::object(), [&](const Json& answer) { reply = answer; });
  EXPECT_EQ(reply, Json({{"ok", true}}));
  bool later = false;
  laptop.queue().post([&] { later = true; });
  laptop.advance(10);
  EXPECT_FALSE(later) << "the queue was asked to stop on the turn after the answer";
}

}  // namespace
}  // namespace tovi
