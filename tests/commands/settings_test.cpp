// Settings read and changed by commands and from the command line.

#include <gtest/gtest.h>

#include <map>

#include "commands/Center.h"
#include "commands/Recorder.h"

namespace tovi {
namespace {

class SettingCommand : public testing::Test, protected Center {
 protected:
  std::string fileText() { return state.read("config.json").value_or(""); }

  // The tool at work, heard by this center.
  int run(const CLI::Words& words) { return output.run(laptop, words); }
  Recorder output;
};

TEST_F(SettingCommand, FailuresGiveTheirTextAndChangeNothing) {
  const Config before = engine().config;
  const std::string file = fileText();
  for (const auto& [args, error] : std::map<std::string, std::string>{
           {"{}", "needs key"},
           {R"({"key": 5, "value": "on"})", "needs key"},
           {R"({"key": "battery-limit"})", "battery_floor needs a value"},
           {R"({"key": "mode", "value": null})", "mode needs auto, on or off"},
           {R"({"key": "Battery-Limit", "value": "14%"})",
            "battery_floor needs to be lowered in Tovi itself (it can only be raised from here)"},
           {R"({"key": "heat_guard", "value": "off"})",
            "heat_guard needs to be turned off in Tovi's Settings (it can only be turned on from here)"}}) {
    EXPECT_EQ(errorOf("set", Json::parse(args)), error);
  }
  const std::string unknown = errorOf("set", {{"key", "Colour"}});
  EXPECT_TRUE(unknown.starts_with("unknown setting Colour. Keys: mode, ")) << unknown;
  EXPECT_TRUE(unknown.ends_with(" (tovi settings explains each)")) << unknown;
  EXPECT_EQ(engine().config.get(), before);
  EXPECT_EQ(fileText(), file);
}

TEST_F(SettingCommand, AnswersWithTheKeyAndWhatNowHolds) {
  const Json reply = ask("set", {{"key", "quiet-minutes"}, {"value", "999"}});
  EXPECT_EQ(reply.size(), 4u) << reply;
  EXPECT_EQ(reply["key"], "quiet_minutes");
  EXPECT_EQ(reply["value"], 240);
  EXPECT_EQ(reply["status"], engine().statusLine());
  EXPECT_EQ(Config::decode(fileText())->quietMinutes, 240);
}

TEST_F(SettingCommand, AnEditThatNobodyHasReadYetIsNotOverwritten) {
  Config edited = engine().config;
  edited.quietMinutes = 77;
  laptop.files().put(state.path("config.json"), edited.encoded());
  ask("set", {{"key", "preset"}, {"value", "balanced"}});
  EXPECT_EQ(Config::decode(fileText())->quietMinutes, 77);
}

TEST_F(SettingCommand, CommandLineTakesTypedValuesAndSaysWhatIsRefused) {
  EXPECT_EQ(run({"set", "battery-limit", "25%"}), 0);
  EXPECT_EQ(output.out, engine().statusLine() + "\n");
  EXPECT_EQ(run({"set", "battery_floor", "5"}), 1);
  EXPECT_EQ(output.err, "tovi: battery_floor needs to be lowered in Tovi itself (it can only be raised from here)\n");
  EXPECT_EQ(engine().config->batteryFloor, 25);
  run({"set", "ntfy_topic", "mine"});
  EXPECT_EQ(run({"set", "ntfy_topic", ""}), 0);
  EXPECT_EQ(engine().config->ntfyTopic, "");
  EXPECT_EQ(run({"check-in", "20"}), 1);
  EXPECT_EQ(output.err, "tovi: check_in_minutes needs 0, 15, 30 or 60\n");
}

TEST_F(SettingCommand, CommandLineListsThemAllAndRawOnRequest) {
  EXPECT_EQ(run({"settings"}), 0);
  EXPECT_TRUE(output.out.starts_with("mode  auto  auto|on|off\n  auto (shown as When Busy): awake only")) << output.out;
  EXPECT_NE(output.out.find("\nbattery_floor  15  0-80\n  Sleep when the battery reaches this percent (0 = never stop "
                            "for battery).\n  Can only be raised from commands; lowering it is the person's call in "
                            "Tovi's Settings.\nheat_guard  on  on|off\n"),
            std::string::npos);
  EXPECT_NE(output.out.find("\nntfy_topic  \"\"\n"), std::string::npos);
  EXPECT_TRUE(
      output.out.ends_with("\n\nChange with: tovi set <key> <value>. Per-app rules: tovi rule <app> "
                           "leave|slow|pause. File: " +
                           Config::path(state) + "\n"));
  EXPECT_EQ(run({"schema", "--json"}), 0);
  EXPECT_EQ(json::parseObject(output.out), ask("schema"));
}

TEST(SettingsListing, TerminalGetsColumnsAndAnotherReplyIsShownAsItIs) {
  Recorder output;
  output.terminal = true;
  const Json reply = Json::parse(R"({"config_file": "/c", "settings": [
      {"key": "low_power", "value": false, "allowed": ["on", "off"], "description": "D"},
      {"key": "t", "value": "", "note": "N"}, 7]})");
  EXPECT_EQ(CLI::showSettings(reply, output), 0);
  EXPECT_TRUE(
      output.out.starts_with("low_power  off  on|off\n  D\n"
                             "t          \"\"\n  N\n"
                             "\n\nChange with: "))
      << output.out;
  EXPECT_EQ(CLI::showSettings({{"ok", false}, {"error", "gone"}}, output), 1);
  EXPECT_EQ(output.err, "tovi: gone\n");
}

}  // namespace
}  // namespace tovi
