// `tovi connect` on homes with and without agents.

#include <gtest/gtest.h>

#include "commands/Recorder.h"
#include "engine/World.h"

namespace tovi {
namespace {

class Connect : public testing::Test, protected World {
 protected:
  Recorder output;

  int run(const CLI::Words& words) { return output.run(laptop, words); }
  void put(const std::string& name, const std::string& text) { laptop.files().put("/home/anna/" + name, text); }
};

constexpr char kClaude[] = "Claude Code: Added to Claude Code (~/.claude.json). New sessions can use Tovi.\n";
constexpr char kCodex[] = "Codex: Added to Codex (~/.codex/config.toml). New sessions can use Tovi.\n";
constexpr char kApp[] = "Claude app: Added to the Claude app. Restart it to pick Tovi up.\n";
constexpr char kNone[] = "No agent found. Use: tovi connect claude | codex | claude-app\n";

TEST_F(Connect, TellsOfEachAgentHowItWent) {
  EXPECT_EQ(run({"connect"}), 1);
  EXPECT_EQ(output.out, kNone);
  put(".claude.json", "{}");
  put(".codex/config.toml", "");
  laptop.files().put("/Applications/Claude.app/Contents/Info.plist", "");
  put("Library/Application Support/Claude/claude_desktop_config.json", "{}");
  for (const auto& [words, out] :
       std::vector<std::pair<CLI::Words, std::string>>{{{"connect"}, std::string(kClaude) + kCodex + kApp},
                                                       {{"connect", "claude-code"}, kClaude},
                                                       {{"connect", "codex"}, kCodex},
                                                       {{"connect", "claude-app"}, kApp}}) {
    EXPECT_EQ(run(words), 0) << words.back();
    EXPECT_EQ(output.out, out);
  }
  EXPECT_EQ(run({"connect", "emacs"}), 1);
  EXPECT_EQ(output.out, kNone);
  EXPECT_TRUE(laptop.broadcast().posted().empty()) << "no application is needed";
}

TEST_F(Connect, OneFileThatIsLeftAloneMakesItFailTheOthersAreDone) {
  put(".claude.json", "{broken");
  put(".codex/config.toml", "");
  EXPECT_EQ(run({"connect"}), 1);
  EXPECT_EQ(output.out, std::string("Claude Code: .claude.json isn't valid JSON, so I left it alone.\n") + kCodex);
}

TEST_F(Connect, HandWrittenEntryIsNoFailure) {
  put(".codex/config.toml", "[mcp_servers]\ntovi = { command = \"x\" }\n");
  EXPECT_EQ(run({"connect"}), 0);
  EXPECT_EQ(output.out, "Codex: Codex already has an tovi entry written by hand; left it as it is.\n");
}

TEST_F(Connect, TheInstalledLinkIsWhatAgentsStart) {
  put(".claude.json", "{}");
  run({"connect"});
  EXPECT_NE(laptop.files().read("/home/anna/.claude.json")->find(laptop.surroundings().executable), std::string::npos);
  laptop.files().makeFolders(laptop.surroundings().localBin);
  laptop.files().link(laptop.surroundings().executable, laptop.surroundings().localBin + "/tovi");
  run({"connect"});
  const std::string text = *laptop.files().read("/home/anna/.claude.json");
  EXPECT_NE(text.find("\"" + laptop.surroundings().localBin + "/tovi\""), std::string::npos) << text;
}

}  // namespace
}  // namespace tovi
