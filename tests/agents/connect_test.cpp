#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "agents/AIConnect.h"
#include "agents/MeddledFiles.h"
#include "core/Deaths.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Json = nlohmann::json;

const ServerCommand kServer{"/usr/local/bin/tovi", {"mcp"}};
constexpr char kCodexUnreadable[] = "Couldn't read ~/.codex/config.toml, so I left it alone.";

// One agent's file, and what is said of it.
struct Agent {
  const char* name;
  std::string (AIConnect::*connect)(const ServerCommand&) const;
  bool (AIConnect::*connected)() const;
  std::string path, fresh, plain, broken, added, isBroken, unreadable, unwritten;

  std::string file() const { return path.substr(path.rfind('/') + 1); }
};

Agent jsonAgent(const char* name, decltype(Agent::connect) connect, decltype(Agent::connected) connected,
                const std::string& path, const Json& entry, const char* added) {
  const std::string file = path.substr(path.rfind('/') + 1);
  const Json plain{{"mcpServers", {{"other", {{"command", "x"}}}}}, {"n", 9007199254740993}};
  Json fresh;
  fresh["mcpServers"]["tovi"] = entry;
  return {name,
          connect,
          connected,
          path,
          fresh.dump(2) + "\n",
          plain.dump(),
          R"({"a": 1, /* mine */ })",
          added,
          file + " isn't valid JSON, so I left it alone.",
          "Couldn't read " + file + ", so I left it alone.",
          "Couldn't write " + file};
}

std::vector<Agent> agents() {
  return {
      jsonAgent("Claude Code", &AIConnect::connectClaudeCode, &AIConnect::claudeCodeConnected,
                "/home/anna/.claude.json", {{"command", kServer.command}, {"args", {"mcp"}}, {"type", "stdio"}},
                "Added to Claude Code (~/.claude.json). New sessions can use Tovi."),
      jsonAgent("Claude app", &AIConnect::connectClaudeApp, &AIConnect::claudeAppConnected,
                "/home/anna/Library/Application Support/Claude/claude_desktop_config.json",
                {{"command", kServer.command}, {"args", {"mcp"}}},
                "Added to the Claude app. Restart it to pick Tovi up."),
      {"Codex", &AIConnect::connectCodex, &AIConnect::codexConnected, "/home/anna/.codex/config.toml",
       "[mcp_servers.tovi]\ncommand = \"/usr/local/bin/tovi\"\nargs = [\"mcp\"]\n", "a = 1\n[b]\n", "a = \"\"\"\n",
       "Added to Codex (~/.codex/config.toml). New sessions can use Tovi.", kCodexUnreadable, kCodexUnreadable,
       "Couldn't write Codex's config: "},
  };
}

struct Home {
  explicit Home(const Agent& which) : agent(which) {
    laptop.files().makeFolders(agent.path.substr(0, agent.path.rfind('/')));
    before = laptop.faults().operations();
  }

  const Agent& agent;
  MemoryLaptop laptop;
  AIConnect connect{laptop.machine()};
  std::int64_t before = 0;

  MemoryFiles& files() { return laptop.files(); }
  void put(std::string_view text, unsigned mode = 0644) { files().put(agent.path, text, mode); }
  std::string run() { return (connect.*agent.connect)(kServer); }
  bool connected() { return (connect.*agent.connected)(); }
  std::optional<std::string> text() { return files().read(agent.path); }
  std::string backupPath() { return agent.path + ".tovi-backup"; }
  std::string folder() { return agent.path.substr(0, agent.path.rfind('/')); }
  // Of the agent's file, its backup and what may be left over.
  std::size_t filesBeside() {
    const auto names = *files().list(folder());
    return static_cast<std::size_t>(
        std::ranges::count_if(names, [&](const std::string& name) { return name.starts_with(agent.file()); }));
  }
  bool untouched() { return laptop.faults().operations() == before && !files().exists(backupPath()); }
};

TEST(Connect, AddsToEveryHomeOnceAndKeepsABackup) {
  for (const Agent& agent : agents()) {
    SCOPED_TRACE(agent.name);
    Home nothing(agent);
    EXPECT_FALSE(nothing.connected());
    EXPECT_EQ(nothing.run(), agent.added);
    EXPECT_EQ(nothing.text(), agent.fresh);
    EXPECT_EQ(nothing.files().status(agent.path)->mode, 0600u);

    Home plain(agent);
    plain.put(agent.plain, 0640);
    EXPECT_EQ(plain.run(), agent.added);
    EXPECT_TRUE(plain.connected());
    EXPECT_EQ(plain.files().status(agent.path)->mode, 0640u);
    EXPECT_EQ(plain.files().read(plain.backupPath()), agent.plain);
    EXPECT_EQ(plain.files().status(plain.backupPath())->mode, 0600u) << "of whatever group it is";
    const auto once = plain.text();
    EXPECT_NE(once->find(agent.path.ends_with("toml") ? "a = 1\n[b]\n" : "9007199254740993"), std::string::npos);
    EXPECT_EQ(plain.run(), agent.added);
    EXPECT_EQ(plain.text(), once);
    EXPECT_EQ(plain.files().read(plain.backupPath()), agent.plain) << "the backup is of the file without us";
  }
}

TEST(Connect, LeavesAloneWhatItCannotReadOrMayNotWrite) {
  for (const Agent& agent : agents()) {
    SCOPED_TRACE(agent.name);
    const std::pair<std::function<void(Home&)>, std::string> cases[] = {
        {[&](Home& home) { home.put(agent.broken); }, agent.isBroken},
        {[&](Home& home) { home.put(agent.plain, 0200); }, agent.unreadable},
        {[&](Home& home) { home.put(agent.plain, 0444); }, agent.unwritten},
        {[&](Home& home) { home.files().link("/nowhere", agent.path); }, agent.unreadable},
        // What can't be seen isn't absent.
        {[&](Home& home) { home.files().setMode(home.folder(), 0300); }, agent.unreadable},
        {[&](Home& home) { home.put(agent.plain), home.files().setMode(home.folder(), 0600); }, agent.unreadable},
    };
    for (const auto& [furnish, expected] : cases) {
      Home home(agent);
      furnish(home);
      home.before = home.laptop.faults().operations();
      const std::string said = home.run();
      EXPECT_TRUE(said.starts_with(expected)) << said << "\nnot " << expected;
      EXPECT_TRUE(home.untouched()) << said;
    }

    Home full(agent);
    full.files().setFull(true);
    EXPECT_TRUE(full.run().starts_with(agent.unwritten));
    full.put(agent.plain);
    EXPECT_EQ(full.run(), "Couldn't save a backup of " + agent.file() + ", so I left it alone.");
    EXPECT_EQ(full.text(), agent.plain);
    EXPECT_EQ(full.filesBeside(), 1u) << "no left-overs";
  }
}

TEST(Connect, ADeathAtAnyWriteKeepsTheBackupAndIsMadeGoodByRunningAgain) {
  for (const Agent& agent : agents()) {
    for (const bool powerLost : {false, true}) {
      SCOPED_TRACE(agent.name);
      const auto home = [&] {
        auto made = std::make_unique<Home>(agent);
        made->put(agent.plain);
        return made;
      };
      atEveryDeath(
          powerLost, home, [](Home& one) { one.run(); },
          [&](Home& one) {
            EXPECT_EQ(one.text() == agent.plain ? one.text() : one.files().read(one.backupPath()), agent.plain);
            EXPECT_LE(one.filesBeside(), 3u) << "one left-over at most";
            EXPECT_EQ(one.run(), agent.added);
            EXPECT_TRUE(one.connected());
            EXPECT_EQ(one.files().read(one.backupPath()), agent.plain);
            EXPECT_EQ(one.filesBeside(), 2u);
          });
    }
  }
}

TEST(Connect, AFailureAtAnyStepIsSaidUnlessTheFileStandsAndNeverChangesItsOwner) {
  for (const Agent& agent : agents()) {
    bool failed = true;
    for (std::int64_t step = 1; failed; ++step) {
      Home home(agent);
      home.put(agent.plain);
      home.files().setOwner(agent.path, 7, 8);
      const std::int64_t number = home.laptop.faults().operations() + step;
      home.laptop.faults().failOperation(number);
      const std::string said = home.run();
      failed = home.laptop.faults().operations() >= number;
      SCOPED_TRACE(agent.name + (failed ? home.laptop.faults().log(number).front() : ", no failure"));
      EXPECT_EQ(said == agent.added, home.connected()) << said;
      EXPECT_TRUE(home.connected() || home.text() == agent.plain);
      EXPECT_TRUE(failed || home.connected());
      EXPECT_EQ(home.files().status(agent.path)->uid, 7u);
      EXPECT_EQ(home.files().status(agent.path)->gid, 8u);
      EXPECT_LE(home.filesBeside(), 2u) << "no left-overs";
      EXPECT_TRUE(failed || step > 8) << "it made hardly a change";
    }
  }
}

// One agent stands for all here: they share what writes into another's file.
TEST(Connect, WhatTheAgentWritesMeanwhileIsNotLost) {
  const Agent agent = agents().back();
  const std::pair<bool, std::function<void(Home&)>> cases[] = {
      {true, [&](Home& home) { home.put("theirs"); }},
      {true, [&](Home& home) { home.files().erase(agent.path); }},
      {true, [&](Home& home) { home.files().erase(agent.path), home.put(agent.plain); }},
      {true, [&](Home& home) { home.put(agent.plain, 0444); }},
      {false, [&](Home& home) { home.put("theirs"); }},
  };
  for (const auto& [stood, meddle] : cases) {
    Home home(agent);
    if (stood) home.put(agent.plain);
    MeddledFiles meddled(home.laptop.machine());
    std::optional<std::string> theirs;
    const auto act = [&, &meddle = meddle] { meddle(home), theirs = home.text(); };
    // The backup is written first, where there is something to keep.
    meddled.meddle(MeddledFiles::At::write, ".tovi-tmp", [&, stood = stood] {
      if (!stood) return act();
      meddled.meddle(MeddledFiles::At::write, ".tovi-tmp", act);
    });
    const std::string said = (AIConnect(meddled.machine()).*agent.connect)(kServer);
    EXPECT_EQ(said, agent.unwritten + "it has just changed");
    EXPECT_EQ(home.text(), theirs);
    EXPECT_FALSE(home.files().exists(agent.path + ".tovi-tmp"));
  }
}

TEST(Connect, ServersThatAreNoObjectMakeWayAndTheRestStays) {
  const Agent agent = agents().front();
  Home home(agent);
  home.put(R"({"x":[1.0],"mcpServers":[1]})");
  EXPECT_EQ(home.run(), agent.added);
  EXPECT_EQ(home.text(), agent.fresh.substr(0, agent.fresh.size() - 3) + ",\n  \"x\": [\n    1.0\n  ]\n}\n");
}

TEST(Connect, AFolderThatIsMissingIsSaid) {
  MemoryLaptop laptop;
  const AIConnect connect(laptop.machine());
  EXPECT_EQ(connect.connectCodex(kServer), "Couldn't write Codex's config: its folder doesn't exist");
  EXPECT_EQ(connect.connectClaudeApp(kServer), "Couldn't write claude_desktop_config.json");
  EXPECT_FALSE(connect.codexInstalled());
}

TEST(Connect, ClaudeCodesOwnCommandComesFirstAndItsFailureIsMadeGood) {
  for (const int code : {0, 1}) {
    MemoryLaptop laptop;
    const AIConnect connect(laptop.machine());
    EXPECT_FALSE(connect.claudeCodeInstalled());
    laptop.files().makeFolders("/home/anna/.claude/local/claude");  // no program
    laptop.files().put("/usr/local/bin/claude", "");
    laptop.files().put("/home/anna/.local/bin/claude", "");
    laptop.tool("/home/anna/.local/bin/claude", [&](const std::vector<std::string>& arguments) {
      return CommandResult{arguments[1] == "remove" ? 1 : code, ""};
    });
    EXPECT_TRUE(connect.claudeCodeInstalled());
    EXPECT_EQ(connect.connectClaudeCode({"/a b/Tovi", {"cli", "mcp"}}),
              code == 0 ? "Added to Claude Code for all projects. New sessions can use Tovi."
                        : "Added to Claude Code (~/.claude.json). New sessions can use Tovi.");
    ASSERT_EQ(laptop.commands().size(), 2u);
    EXPECT_EQ(laptop.commands()[0].line(), "/home/anna/.local/bin/claude mcp remove --scope user tovi");
    EXPECT_EQ(laptop.commands()[1].line(),
              "/home/anna/.local/bin/claude mcp add --scope user tovi -- /a b/Tovi cli mcp");
    EXPECT_EQ(connect.claudeCodeConnected(), code != 0);
  }
}

}  // namespace
}  // namespace tovi
