// Replies as they are printed.

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

#include "commands/CLI.h"
#include "commands/Recorder.h"
#include "commands/Wire.h"

namespace tovi {
namespace {

using Json = nlohmann::json;

const Json kStatus = Json::parse(R"({
  "ok": true, "status": "Claude Code is working · sleeps when closed",
  "battery": {"percent": 80, "watts": 6.5, "on_power": false, "charging": false},
  "hours_left_closed": 9.1, "closed_estimate_watts": 5.0,
  "warning": "The watchdog isn't running", "not_put_back_yet": ["Xcode", "Slack"],
  "watching": [{"name": "Claude Code", "project": "site", "working": true, "instances": 2},
               {"name": "Codex", "project": "", "working": false, "idle_minutes": 3}],
  "apps_using_energy": [{"name": "Xcode", "watts": 12.345, "while_closed": "slow"}]})");

TEST(Show, StatusComesInItsOrderAsBareTexts) {
  Recorder output;
  EXPECT_EQ(CLI::show(kStatus, false, output), 0);
  EXPECT_EQ(output.out,
            "Claude Code is working · sleeps when closed\n"
            "battery 80% 6.5 W\n"
            "lid closed: ≈9.1 h left (≈5.0 W, estimated)\n"
            "note: The watchdog isn't running\n"
            "not put back yet: Xcode, Slack\n"
            "Claude Code ×2  site  working\n"
            "Codex  idle for 3 min\n"
            "   12.35 W  Xcode  (slow)\n");
  EXPECT_EQ(output.err, "");
}

TEST(Show, TerminalGetsColumns) {
  Recorder output;
  output.terminal = true;
  const Json apps = Json::parse(R"([{"name": "Xcode", "watts": 12.345, "while_closed": "slow"},
                                    {"name": "A", "watts": 1, "while_closed": "leave"}])");
  CLI::show(Json{{"ok", true}, {"watching", kStatus["watching"]}, {"apps", apps}}, false, output);
  EXPECT_EQ(output.out,
            "Claude Code ×2  site  working\n"
            "Codex                 idle for 3 min\n"
            "   12.35 W  Xcode  (slow)\n"
            "    1.00 W  A      (leave)\n");
}

// Whoever names an agent or a hold must not write to the title of somebody's terminal, or worse.
TEST(Show, WordsOfOthersCannotDriveATerminal) {
  const Json reply{{"ok", true}, {"status", "a\033]0;x\007\u009b2J\x7f ü"}};
  Recorder output;
  CLI::show(reply, false, output);
  EXPECT_EQ(output.out, "a\033]0;x\007\u009b2J\x7f ü\n") << "a program gets the text as it is";
  for (const bool inks : {false, true}) {
    output = {};
    output.terminal = true;
    output.inks = inks;
    CLI::show(reply, false, output);
    EXPECT_EQ(output.out, inks ? "\033[1ma?]0;x??2J? ü\033[0m\n" : "a?]0;x??2J? ü\n");
  }
}

TEST(Show, PiecesOfOtherReplies) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  for (const auto& [reply, out] : std::map<std::string, std::string>{
           {R"({"status": "s", "released": 2})", "s\nreleased 2\n"},
           {R"({"hold": {"id": "ab12cd34", "reason": "r"}})", "hold ab12cd34\n"},
           {R"({"hold": {"id": "ab", "until": "2026-01-05T17:30:00Z"}})", "hold ab until 17:30\n"},
           {R"({"battery": {"percent": 5, "watts": 0.0, "on_power": true}})", "battery 5% on power\n"},
           {R"({"path": "/p", "config": {"mode": "on"}})", "/p\n{\n  \"mode\": \"on\"\n}\n"},
           {R"({"status": 5, "hold": "x", "battery": null, "apps": 7, "watching": [1, "x"]})",
            "hold \nbattery 0% 0.0 W\n  idle\n  idle\n"},
           {"{}", ""}}) {
    Recorder output;
    EXPECT_EQ(CLI::show(Json::parse(reply), false, output), 0);
    EXPECT_EQ(output.out, out);
  }
}

TEST(Show, FailureGoesToStandardErrorAndRawToStandardOutput) {
  Recorder output;
  EXPECT_EQ(CLI::show(Wire::failure("needs app"), false, output), 1);
  EXPECT_EQ(CLI::show({{"ok", false}}, false, output), 1);
  EXPECT_EQ(output.err, "tovi: needs app\ntovi: failed\n");
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(CLI::show(Wire::failure("x"), true, output), 1);
  EXPECT_EQ(CLI::show({{"a", 1}}, true, output), 0);
  EXPECT_EQ(output.out, "{\n  \"error\": \"x\",\n  \"ok\": false\n}\n{\n  \"a\": 1\n}\n");
}

}  // namespace
}  // namespace tovi
