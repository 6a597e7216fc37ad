// Watts by command and on the command line: reports, the quick estimate, and the wait for a power test.

#include <gtest/gtest.h>

#include <optional>

#include "app/AppDelegate.h"
#include "commands/Center.h"
#include "commands/Recorder.h"
#include "commands/Wire.h"
#include "safety/Heartbeat.h"

namespace tovi {
namespace {

using Telemetry = BatteryProperties::Telemetry;

class PowerCommands : public testing::Test, protected Center {
 protected:
  void supervise() {
    ask("hold", {{"reason", "training"}});
    lid(true);
    laptop.advance(5);
  }
};

TEST_F(PowerCommands, APowerTestSaysHowLongItTakesAndWhatItLeavesOut) {
  EXPECT_EQ(ask("panel"), engine().panelJSON()) << "the report alone";
  supervise();
  EXPECT_EQ(ask("power_test", {{"screen", "on"}})["about_seconds"], 210);
  EXPECT_EQ(ask("power")["power_test"]["state"], "Measuring, 1 of 4");
  lid(false);
  laptop.advance(2);
  lid(true);
  const Json reply = ask("power_test", {{"detailed", "yes"}});
  EXPECT_EQ(reply["started"], true);
  EXPECT_EQ(reply["about_seconds"], 720);
  EXPECT_EQ(reply["next"], "Call power again (tovi power) for results once power_test shows done.");
  EXPECT_EQ(errorOf("power_test"), "A power test is already running");
  EXPECT_EQ(ask("power")["power_test"]["state"], "Measuring, 1 of 14") << "without the screen";
}

TEST_F(PowerCommands, MeasureWaitsForItsFigures) {
  std::vector<Json> replies;
  const auto keep = [&](const Json& reply) { replies.push_back(reply); };
  const Pid notes = program("/Applications/Notes.app/Contents/MacOS/Notes", 1, 4);
  laptop.edit([&](LaptopReport& report) {
    report.applications.push_back(
        {notes, "Notes", std::string("com.example.notes"), std::string("/Applications/Notes.app"), true});
  });
  center->handle("measure", Json::object(), keep);
  laptop.advance(2);
  center->handle("measure", Json::object(), keep);
  laptop.advance(4.9);
  EXPECT_TRUE(replies.empty());
  laptop.advance(1);
  ASSERT_EQ(replies.size(), 2u) << "who asks meanwhile gets the same figures";
  EXPECT_EQ(replies[0]["before_watts"], 4.0);
  EXPECT_EQ(replies[0]["after_watts"], 1.0);
  EXPECT_EQ(replies[0]["apps"], Json::array({{{"name", "Notes"}, {"before_watts", 4.0}, {"after_watts", 1.0}}}));
  EXPECT_EQ(replies[0]["apps"], replies[1]["apps"]);
  supervise();
  EXPECT_EQ(errorOf("measure"), "Open the lid to measure");
}

const Json kReport = Json::parse(R"json({
  "system_watts": 6.28, "source": "controller", "lid_closed": true, "learned_open_watts": 9.0,
  "suspects": [
    {"active": true, "title": "Screen stays on", "why": "W.", "tradeoff": "T.", "setting": "screen_off",
     "value": false, "suggested_value": true, "measured_saving_watts": 0.61},
    {"active": true, "title": "Busy apps: Xcode 12.3 W (pause)", "setting": "preset", "value": "max_battery",
     "suggested_value": "max_battery", "per_app": "tovi rule <app> pause"},
    {"active": false, "title": "Low Power Mode turns on", "note": "N.", "measured_saving_watts": 1.5}],
  "learned_closed_watts": null, "power_test": {"state": "done", "measured_total_saving_watts": 4.56}})json");

TEST(ShowPower, SaysWhereTheWattsGoAndWhatWouldHelp) {
  Recorder output;
  EXPECT_EQ(CLI::showPower(kReport, false, output), 0);
  EXPECT_EQ(output.out,
            "Using 6.3 W now (controller). Lid closed\n"
            "Learned: lid open 9.0 W, lid closed not known yet\n"
            "● Screen stays on  (measured: saves 0.6 W)\n"
            "    W.\n"
            "    would help: tovi set screen_off on\n"
            "    T.\n"
            "● Busy apps: Xcode 12.3 W (pause)\n"
            "    for one app: tovi rule <app> pause\n"
            "○ Low Power Mode turns on  ·  saves 1.5 W\n"
            "    N.\n"
            "Measured: Tovi's savings are worth 4.6 W with the lid shut\n"
            "Power test: done\n");
}

TEST(ShowPower, CopesWithWhatIsMissingOrOfAnotherKind) {
  Recorder output;
  CLI::showPower({{"suspects", 7}, {"power_test", {{"measured_total_saving_watts", "unclear (x)"}}}}, false, output);
  EXPECT_TRUE(output.out.starts_with(
      "Using ? W now (). Lid open\nLearned: lid open not known yet, lid closed not known yet\nMeasured: unclear (x)\n"))
      << output.out;
  EXPECT_EQ(CLI::showPower(Wire::failure("no"), false, output), 1);
  EXPECT_EQ(output.err, "tovi: no\n");
}

TEST(ShowMeasure, SaysBeforeAndAfter) {
  Recorder output;
  CLI::show({{"ok", true},
             {"before_watts", 8.5},
             {"after_watts", 0.5},
             {"apps", {{{"name", "Notes"}, {"before_watts", 6.5}, {"after_watts", 0}}}}},
            false, output);
  EXPECT_EQ(output.out, "    8.50 W →   0.50 W  all that the lid would treat\n    6.50 W →   0.00 W  Notes\n");
}

class PowerLine : public testing::Test, protected World {
 protected:
  Recorder output;
  std::optional<AppDelegate> app;
  std::function<void()> meanwhile;  // at each moment that the tool waits

  void supervise() {
    app.emplace(laptop.machine(), nullptr);
    app->didFinishLaunching(false);
    Heartbeat::beat(laptop.machine(), state);
    run({"hold"});
    lid(true);
    laptop.advance(5);
  }
  int run(const CLI::Words& words) { return output.run(laptop, words, meanwhile); }
  int linesWith(const std::string& text) const {
    int count = 0;
    for (auto at = output.out.find(text); at != std::string::npos; at = output.out.find(text, at + 1)) ++count;
    return count;
  }
};

TEST_F(PowerLine, APipeGetsEachStepOnceAndThenTheFigures) {
  supervise();
  EXPECT_EQ(run({"power", "test"}), 0);
  EXPECT_TRUE(output.out.starts_with(
      "Measuring for about 3 min, keep the lid shut (agents keep running)…\nMeasuring, 1 of 4\nMeasuring, 2 of 4\n"
      "Measuring, 3 of 4\nMeasuring, 4 of 4\nUsing "))
      << output.out;
  EXPECT_TRUE(output.out.ends_with("Power test: done\n")) << output.out;
  EXPECT_EQ(linesWith("Measured: Tovi's savings are worth "), 1);
  EXPECT_EQ(output.out.find('\r'), std::string::npos);
  EXPECT_EQ(run({"power"}), 0);
  EXPECT_EQ(linesWith("Power test: done"), 1);
}

TEST_F(PowerLine, ATerminalGetsOneLineThatMoves) {
  supervise();
  output.terminal = true;
  EXPECT_EQ(run({"power", "test", "--detailed", "--screen"}), 0);
  const auto begin = output.out.find('\r');
  const auto end = output.out.rfind('\r');
  ASSERT_NE(begin, std::string::npos);
  const std::string moving = output.out.substr(begin, end - begin);
  EXPECT_EQ(moving.find('\n'), std::string::npos);
  EXPECT_TRUE(moving.starts_with("\rMeasuring · 11:59 left\rMeasuring · 11:58 left")) << moving.substr(0, 100);
  EXPECT_NE(moving.find("\rMeasuring, 1 of 16 · 11:5"), std::string::npos) << moving.substr(0, 300);
  EXPECT_NE(moving.find("\rMeasuring other apps, 6 of 16 · "), std::string::npos);
  EXPECT_NE(moving.find("\rMeasuring screen off (locks), 16 of 16 · "), std::string::npos);
  // The last of it is wiped before the figures.
  const std::string wiped = moving.substr(moving.rfind('\r') + 1);
  EXPECT_EQ(wiped.find_first_not_of(' '), std::string::npos) << wiped;
  EXPECT_TRUE(output.out.substr(end + 1).starts_with("Using ")) << output.out.substr(end + 1, 80);
}

TEST_F(PowerLine, EachWayToFailHasItsWordsAndStatus1) {
  supervise();
  lid(false);
  EXPECT_EQ(run({"power", "test"}), 1);
  EXPECT_EQ(output.err,
            "tovi: Close the lid first (with Tovi keeping the Mac awake): the test measures lid-closed savings\n");
  lid(true);
  meanwhile = [this, waits = 0]() mutable {
    if (++waits == 40) lid(false);
  };
  EXPECT_EQ(run({"power", "test"}), 1);
  EXPECT_EQ(output.err, "tovi: power test aborted: the lid was opened\n");

  lid(true);
  laptop.edit([](LaptopReport& report) { report.telemetrySeconds = 70; });
  meanwhile = nullptr;
  EXPECT_EQ(run({"power", "test"}), 1);
  EXPECT_TRUE(output.err.empty()) << output.err;
  EXPECT_TRUE(output.out.ends_with("tovi: the test didn't finish in time; run tovi power later for results\n"));
}

TEST_F(PowerLine, AnApplicationThatGoesMeanwhileEndsTheWait) {
  supervise();
  meanwhile = [this, waits = 0]() mutable {
    if (++waits == 20) app.reset();
  };
  EXPECT_EQ(run({"power", "test"}), 1);
  EXPECT_EQ(output.err, "tovi: Tovi didn't answer. Is it running? Open /Applications/Tovi.app\n");
}

}  // namespace
}  // namespace tovi
