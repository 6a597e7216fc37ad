// The command line tool's words, on a laptop where the application runs or doesn't.

#include <gtest/gtest.h>

#include <optional>

#include "app/AppDelegate.h"
#include "commands/CLITexts.h"
#include "commands/Center.h"
#include "commands/Recorder.h"
#include "safety/Heartbeat.h"

namespace tovi {
namespace {

class CommandLine : public testing::Test, protected World {
 protected:
  Recorder output;
  std::optional<AppDelegate> app;

  void startApp() {
    app.emplace(laptop.machine(), nullptr);
    app->didFinishLaunching(false);
    Heartbeat::beat(laptop.machine(), state);
  }

  int run(const CLI::Words& words) { return output.run(laptop, words); }

  // Sleep is off, and can't be switched on again.
  void leaveSleepOff() {
    state.touch(state.path("hold"));
    laptop.setSwitches([](LaptopSwitches& switches) { switches.sleepDisabled = true; });
    refuse({"pmset -a disablesleep 0"});
  }

  // The command and arguments of the last request, as "cmd {args}".
  std::string sent() {
    const auto& posted = laptop.broadcast().posted();
    if (posted.empty()) return "";
    const Json request = *json::parseObject(posted.back());
    return request["cmd"].get<std::string>() + " " + request["args"].dump();
  }
};

// "hold 90m" must not become a hold without end, nor "uninstall --help" a removal.
TEST_F(CommandLine, WordsThatDoNotBelongAreRefusedAndNothingIsSent) {
  startApp();
  const struct {
    CLI::Words words;
    std::string wrong;
  } cases[] = {
      {{"hold", "90m"}, "90m"},
      {{"hold", "--until", "noon"}, "--until"},
      {{"off", "now"}, "now"},
      {{"release", "a", "b"}, "b"},
      {{"preset", "balanced", "now"}, "now"},
      {{"watch", "--json", "make"}, "--json"},
      {{"power", "now"}, "now"},
      {{"power", "--detailed"}, "--detailed"},
      {{"power", "test", "now"}, "now"},
      {{"rule", "Notes", "slow", "--json"}, "--json"},
  };
  for (const auto& [words, wrong] : cases) {
    EXPECT_EQ(run(words), 2) << words[0];
    const std::string word = words[1] == "test" ? "power test" : words[0];
    EXPECT_EQ(output.out, "tovi: '" + wrong + "' doesn't go with " + word + " (tovi help shows what does)\n");
  }
  for (const char* word : {"hold", "sleep", "uninstall", "rescue"}) {
    EXPECT_EQ(run({word, "--help"}), 0) << word;
    EXPECT_EQ(output.out, CLITexts::kUsage) << word;
  }
  EXPECT_TRUE(laptop.broadcast().posted().empty());
}

TEST_F(CommandLine, HelpAndMistakesNeedNoMachine) {
  const CLI::Ground nothing{
      .machine = []() -> const Machine& { throw "no machine is needed for this"; }, .sleep = nullptr, .output = output};
  for (const auto& [words, code, out] : std::vector<std::tuple<CLI::Words, int, std::string>>{
           {{}, 0, CLITexts::kUsage},
           {{"-h", "status"}, 0, CLITexts::kUsage},
           {{"prompt"}, 0, CLITexts::kPrompt},
           {{"fly"}, 2, std::string("Unknown command 'fly'.\n\n") + CLITexts::kUsage},
           {{"wake_at"}, 2, "tovi wake-at HH:MM [--for 30m] | off\n"},
           {{"check-in"}, 2, "tovi check-in 0|15|30|60\n"},
           {{"preset"}, 2, "tovi preset max_battery|balanced|full_speed\n"},
           {{"rule", "Xcode"}, 2, "tovi rule <app> leave|slow|pause\n"},
           {{"watch"}, 2, "tovi watch <app>\n"},
           {{"unwatch"}, 2, "tovi unwatch <app>\n"},
           {{"set", "mode"}, 2, "tovi set <key> <value>\n"}}) {
    output = {};
    EXPECT_EQ(CLI::main(words, nothing), code) << testing::PrintToString(words);
    EXPECT_EQ(output.out, out);
    EXPECT_EQ(output.err, "");
  }
}

TEST_F(CommandLine, WordsBecomeRequests) {
  startApp();
  for (const auto& [words, request] : std::vector<std::pair<CLI::Words, std::string>>{
           {{"energy", "--json"}, "energy {}"},
           {{"measure"}, "measure {}"},
           {{"anyway", "off"}, R"(override_floor {"on":false})"},
           {{"off"}, R"(mode {"mode":"off"})"},
           {{"always", "--for", "1h30m"}, R"(mode {"minutes":90.0,"mode":"on"})"},
           {{"sleep"}, "sleep_now {}"},
           {{"hold"}, R"(hold {"reason":"Kept awake from the terminal"})"},
           {{"hold", "--pid", "7", "--reason", "x y", "--for", "99999"},
            R"(hold {"minutes":10080.0,"pid":"7","reason":"x y"})"},
           {{"hold", "--for=90m", "--reason=tests"}, R"(hold {"minutes":90.0,"reason":"tests"})"},
           {{"hold", "--pid"}, R"(hold {"pid":"","reason":"Kept awake from the terminal"})"},
           {{"release", "ab12"}, R"(release {"id":"ab12"})"},
           {{"rule", "Xcode", "pause"}, R"(rule {"app":"Xcode","rule":"pause"})"},
           {{"wake-at", "--for", "30m", "07:00"}, R"(wake_at {"minutes":30.0,"time":"07:00"})"},
           {{"check_in", "15"}, R"(set {"key":"check_in_minutes","value":"15"})"},
           {{"watch", "make"}, R"(watch {"app":"make"})"},
           {{"unwatch", "make"}, R"(watch {"app":"make","remove":true})"},
           {{"set", "ntfy_topic", "-h"}, R"(set {"key":"ntfy_topic","value":"-h"})"},
           {{"settings"}, "schema {}"},
           {{"open"}, R"(open {"where":"panel"})"},
           {{"snapshot", "a.png", "window"}, R"(snapshot {"path":"a.png","where":"window"})"},
           {{"island", "T", "S"}, R"(island {"subtitle":"S","title":"T"})"}}) {
    run(words);
    EXPECT_EQ(sent(), request);
  }
}

TEST_F(CommandLine, GoingBelowTheLimitNeverReachesTheApplication) {
  startApp();
  for (const CLI::Words& words : {CLI::Words{"anyway"}, CLI::Words{"anyway", "on"}, CLI::Words{"anyway", "off", "x"}}) {
    EXPECT_EQ(run(words), 2);
    EXPECT_EQ(output.out,
              "tovi: going below the battery limit can only be allowed in Tovi itself (it's the person's call)\n");
  }
  EXPECT_TRUE(laptop.broadcast().posted().empty());
}

TEST_F(CommandLine, RunHoldsForTheCommandAndLeavesOtherHoldsAlone) {
  startApp();
  app->engine()->addHold("mine", std::nullopt, std::nullopt, std::nullopt);
  std::vector<Hold> during;
  EXPECT_EQ(run({"run", "--reason", "x", "--"}), 2);
  EXPECT_EQ(output.out, "tovi run [--reason text] -- <command> [args…]\n");
  EXPECT_EQ(run({"run", "--", "make"}), 127) << "there is no env on this laptop yet";
  EXPECT_EQ(output.err, "tovi: couldn't start make\n");
  laptop.tool("/usr/bin/env", [&](const std::vector<std::string>&) {
    during = app->engine()->holds;
    return CommandResult{7, ""};
  });
  EXPECT_EQ(run({"run", "--reason", "nightly", "--", "/opt/bin/make", "--reason", "-j"}), 7);
  ASSERT_EQ(during.size(), 2u) << "the hold has moved from the wrapper to the command";
  EXPECT_EQ(during[1].reason, "nightly");
  EXPECT_NE(during[1].pid, laptop.processes().self());
  EXPECT_EQ(app->engine()->holds->size(), 1u);
  run({"run", "/opt/bin/make"});
  EXPECT_EQ(during.back().reason, "Running make");
  app->engine()->setupReady = false;
  EXPECT_EQ(run({"run", "--", "make"}), 7);
  EXPECT_TRUE(output.err.ends_with("click Continue. (running anyway)\n")) << output.err;
}

TEST_F(CommandLine, DoctorTellsWhatIsWrongWithoutTheApplication) {
  laptop.setSwitches([](LaptopSwitches& switches) {
    switches.watchdogLoaded = false;
    switches.sleepDisabled = true;
  });
  laptop.edit([](LaptopReport& report) { report.privileged = false; });
  EXPECT_EQ(run({"doctor"}), 0);
  EXPECT_EQ(output.out, "Tovi folder: " + state.dir() +
                            "\nApp: not running\n"
                            "Watchdog: installed but not loaded (open Tovi › Settings › Set Up)\n"
                            "Sleep permission: missing (open Tovi to set it up)\n"
                            "Sleep switched off right now: true\n"
                            "Changes Tovi has made right now:\n"
                            "  sleep is switched off (pmset disablesleep 1)\n");
  EXPECT_TRUE(laptop.broadcast().posted().empty());
}

TEST_F(CommandLine, DoctorAsksALivingApplicationAndShowsNoTerminalWhatOthersWrote) {
  startApp();
  run({"doctor"});
  EXPECT_NE(output.out.find("\nApp: running\nWatchdog: running\nSleep permission: set up\n"), std::string::npos);
  EXPECT_TRUE(output.out.ends_with("right now: none\nStatus: Nothing running · sleeps when closed\n")) << output.out;
  app->engine()->addHold("evil\033]0;owned\a", {}, {}, {});
  output.terminal = true;
  run({"doctor"});
  EXPECT_NE(output.out.find("evil?]0;owned?"), std::string::npos) << output.out;
}

TEST_F(CommandLine, RescuePutsEverythingBackThoughTheApplicationIsStuck) {
  startApp();
  run({"hold"});
  ASSERT_TRUE(sleepOff());
  // It hears and beats no more, but its process is there.
  laptop.broadcast().drop();
  EXPECT_EQ(run({"rescue"}), 0);
  EXPECT_EQ(output.out,
            "Everything Tovi changed is back to how it was. Tovi is stopped; open it again when you want it.\n");
}

TEST_F(CommandLine, RescueNamesWhatItCouldNotUndo) {
  leaveSleepOff();
  EXPECT_EQ(run({"rescue"}), 1);
  EXPECT_EQ(output.out,
            "Couldn't undo:\n  sleep is switched off (pmset disablesleep 1)\n"
            "By hand: sudo pmset -a disablesleep 0 switches sleep back on; quit and reopen any app listed above.\n");
}

TEST_F(CommandLine, SetupTellsHowItWent) {
  laptop.edit([](LaptopReport& report) {
    report.privileged = false;
    report.elevation = LaptopElevation::cancel;
  });
  laptop.settle();
  EXPECT_EQ(run({"setup"}), 1);
  EXPECT_EQ(output.out, "Setup cancelled.\n");
  laptop.edit([](LaptopReport& report) { report.elevation = LaptopElevation::grant; });
  startApp();
  ASSERT_FALSE(app->engine()->setupReady);
  EXPECT_EQ(run({"setup"}), 0);
  EXPECT_EQ(output.out, "Tovi is set up.\n");
  EXPECT_TRUE(app->engine()->setupReady) << "a running application knows at once";
  run({"hold"});
  run({"setup"});
  EXPECT_TRUE(sleepOff()) << "what it keeps awake isn't ended";
}

TEST_F(CommandLine, UninstallGivesBackFirstAndRemovesThen) {
  config(R"({"mode": "on", "quietMinutes": 9})");
  leaveSleepOff();
  EXPECT_EQ(run({"uninstall"}), 1);
  EXPECT_EQ(output.out,
            "Not removed yet: sleep is switched off (pmset disablesleep 1). Tovi keeps its helper so it can keep "
            "trying; try again in a minute.\n");
  EXPECT_TRUE(state.exists("watchdog.sh"));

  refuse({});
  EXPECT_EQ(run({"uninstall"}), 0);
  EXPECT_EQ(output.out, "Removed. Quit Tovi and move it to the Trash to finish.\n");
  EXPECT_FALSE(sleepOff());
  EXPECT_FALSE(state.exists("watchdog.sh"));
  EXPECT_FALSE(laptop.report().privileged);
  const auto left = Config::decode(*state.read("config.json"));
  EXPECT_EQ(left->mode, Mode::off);
  EXPECT_EQ(left->quietMinutes, 9);
}

TEST_F(CommandLine, UninstallRemovesNothingUnderALivingApplication) {
  startApp();
  run({"hold"});
  laptop.broadcast().drop();  // it doesn't hear the request to end
  EXPECT_EQ(run({"uninstall"}), 1);
  EXPECT_TRUE(output.out.starts_with("Not removed yet: Tovi is still running, ")) << output.out;
  EXPECT_TRUE(state.exists("watchdog.sh"));
}

}  // namespace
}  // namespace tovi
