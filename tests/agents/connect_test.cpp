#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

#include "agents/AIConnect.h"
#include "agents/MeddledFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Json = nlohmann::json;

const ServerCommand kServer{"/usr/local/bin/tovi", {"mcp"}};
constexpr char kCodexAdded[] = "Added to Codex (~/.codex/config.toml). New sessions can use Tovi.";
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
       kCodexAdded, kCodexUnreadable, kCodexUnreadable, "Couldn't write Codex's config: "},
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
    EXPECT_FALSE(nothing.files().exists(nothing.backupPath()));

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

TEST(Connect, KeepsTheOwnerOrLeavesTheFileAlone) {
  for (const Agent& agent : agents()) {
    SCOPED_TRACE(agent.name);
    const auto furnish = [&](Home& home) {
      home.put(agent.plain);
      home.files().setOwner(agent.path, 7, 8);
      return home.laptop.faults().operations();
    };
    Home ours(agent);
    const std::int64_t before = furnish(ours);
    EXPECT_EQ(ours.run(), agent.added);
    EXPECT_EQ(ours.files().status(agent.path)->uid, 7u);
    EXPECT_EQ(ours.files().status(agent.path)->gid, 8u);
    const auto log = ours.laptop.faults().log(before + 1);
    const auto given = std::ranges::find_if(log, [](const std::string& line) { return line.starts_with("chown "); });
    ASSERT_NE(given, log.end());

    Home theirs(agent);
    furnish(theirs);
    theirs.laptop.faults().failOperation(before + 1 + (given - log.begin()));
    EXPECT_TRUE(theirs.run().starts_with(agent.unwritten));
    EXPECT_EQ(theirs.text(), agent.plain);
  }
}

TEST(Connect, FollowsALinkAndReplacesItsTarget) {
  for (const Agent& agent : agents()) {
    SCOPED_TRACE(agent.name);
    Home home(agent);
    home.files().put("/home/anna/dotfiles/kept", agent.plain, 0600);
    home.files().link("/home/anna/dotfiles/kept", agent.path);
    EXPECT_EQ(home.run(), agent.added);
    EXPECT_EQ(home.files().linkStatus(agent.path)->kind, FileStatus::Kind::other);
    EXPECT_EQ(home.files().read("/home/anna/dotfiles/kept"), home.text());
    EXPECT_TRUE(home.connected());
    EXPECT_EQ(home.files().status("/home/anna/dotfiles/kept")->mode, 0600u);
    EXPECT_EQ(home.files().status(home.backupPath())->mode, 0600u);
  }
}

TEST(Connect, LeavesAloneWhatItCannotReadOrMayNotWrite) {
  for (const Agent& agent : agents()) {
    SCOPED_TRACE(agent.name);
    Home broken(agent);
    broken.put(agent.broken);
    EXPECT_EQ(broken.run(), agent.isBroken);
    EXPECT_TRUE(broken.untouched());

    Home secret(agent);
    secret.put(agent.plain, 0200);
    EXPECT_EQ(secret.run(), agent.unreadable);
    EXPECT_TRUE(secret.untouched());

    Home astray(agent);
    astray.files().link("/nowhere", agent.path);
    EXPECT_EQ(astray.run(), agent.unreadable);
    EXPECT_TRUE(astray.untouched());

    Home readOnly(agent);
    readOnly.put(agent.plain, 0444);
    EXPECT_TRUE(readOnly.run().starts_with(agent.unwritten));
    EXPECT_TRUE(readOnly.untouched());

    // What can't be seen isn't absent.
    for (const unsigned mode : {0u, 0300u, 0600u}) {
      Home closed(agent);
      if (mode != 0300) closed.put(agent.plain);
      closed.files().setMode(closed.folder(), mode);
      closed.before = closed.laptop.faults().operations();
      EXPECT_EQ(closed.run(), agent.unreadable) << mode;
      EXPECT_TRUE(closed.untouched());
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
    for (const auto when : {MemoryFaults::When::before, MemoryFaults::When::after}) {
      for (const bool powerLost : {false, true}) {
        bool died = true;
        for (std::int64_t step = 1; died; ++step) {
          SCOPED_TRACE(std::string(agent.name) + ", step " + std::to_string(step) + (powerLost ? ", power lost" : ""));
          Home home(agent);
          home.put(agent.plain);
          home.laptop.faults().crashAt(home.before + step, when);
          died = false;
          try {
            home.run();
          } catch (const Crash&) {
            died = true;
          }
          home.laptop.faults().forgetOrders();
          if (died && powerLost) home.laptop.powerLoss();
          if (died && !powerLost) home.laptop.restart();
          const auto kept = home.text() == agent.plain ? home.text() : home.files().read(home.backupPath());
          EXPECT_EQ(kept, agent.plain);
          EXPECT_LE(home.filesBeside(), 3u) << "one left-over at most";
          EXPECT_EQ(home.run(), agent.added);
          EXPECT_TRUE(home.connected());
          EXPECT_EQ(home.files().read(home.backupPath()), agent.plain);
          EXPECT_EQ(home.filesBeside(), 2u);
          EXPECT_TRUE(died || step > 8) << "it made hardly a change";
        }
      }
    }
  }
}

TEST(Connect, AFileThatStandsIsNoFailureThoughItsFolderCannotBeSynchronised) {
  for (const Agent& agent : agents()) {
    Home usual(agent);
    usual.run();
    const auto last = usual.laptop.faults().operations();
    ASSERT_TRUE(usual.laptop.faults().log(last).front().starts_with("sync "));
    Home home(agent);
    home.laptop.faults().failOperation(last);
    EXPECT_EQ(home.run(), agent.added);
    EXPECT_EQ(home.text(), agent.fresh);
  }
}

TEST(Connect, WhatTheAgentWritesMeanwhileIsNotLost) {
  for (const Agent& agent : agents()) {
    struct Case {
      const char* name;
      bool stood;
      std::function<void(Home&)> meddle;
    };
    const Case cases[] = {
        {"changed", true, [&](Home& home) { home.put("theirs"); }},
        {"written anew, the same", true,
         [&](Home& home) {
           home.files().erase(agent.path);
           home.put(agent.plain);
         }},
        {"made read-only", true, [&](Home& home) { home.put(agent.plain, 0444); }},
        {"deleted", true, [&](Home& home) { home.files().erase(agent.path); }},
        {"made", false, [&](Home& home) { home.put("theirs"); }},
    };
    for (const Case& one : cases) {
      SCOPED_TRACE(std::string(agent.name) + ", " + one.name);
      Home home(agent);
      if (one.stood) home.put(agent.plain);
      MeddledFiles meddled(home.laptop.machine());
      std::optional<std::string> theirs;
      const auto meddle = [&] {
        one.meddle(home);
        theirs = home.text();
      };
      // The backup is written first, where there is something to keep.
      meddled.meddle(MeddledFiles::At::write, ".tovi-tmp", [&] {
        if (!one.stood) return meddle();
        meddled.meddle(MeddledFiles::At::write, ".tovi-tmp", meddle);
      });
      const std::string said = (AIConnect(meddled.machine()).*agent.connect)(kServer);
      EXPECT_TRUE(said.starts_with(agent.unwritten)) << said;
      EXPECT_EQ(home.text(), theirs);
      EXPECT_FALSE(home.files().exists(agent.path + ".tovi-tmp"));
    }
  }
}

TEST(Connect, AnEntryTakesItsPlaceInWhatThePersonHas) {
  for (const Agent& agent : agents()) {
    Home home(agent);
    const bool codex = agent.path.ends_with("toml");
    const std::string before =
        codex ? "[mcp_servers.tovi]\ncommand = \"old\"\nenv = { A = \"1\" }\n[b]\n" : R"({"mcpServers":[1],"x":[1.0]})";
    home.put(before);
    EXPECT_EQ(home.run(), agent.added) << agent.name;
    EXPECT_EQ(home.files().read(home.backupPath()), before);
    if (codex) {
      EXPECT_EQ(home.text(), agent.fresh + "env = { A = \"1\" }\n[b]\n");
    } else {
      Json after = Json::parse(agent.fresh);
      after["x"] = {1.0};
      EXPECT_EQ(home.text(), after.dump(2) + "\n");
    }
  }
}

TEST(Connect, AnEntryWrittenByHandStaysInCodex) {
  const Agent codex = agents().back();
  Home home(codex);
  home.put("[mcp_servers]\ntovi = { command = 'mine' }\n");
  EXPECT_TRUE(home.connected());
  EXPECT_EQ(home.run(), "Codex already has an tovi entry written by hand; left it as it is.");
  EXPECT_TRUE(home.untouched());
}

TEST(Connect, AFolderThatIsMissingIsSaid) {
  MemoryLaptop laptop;
  const AIConnect connect(laptop.machine());
  EXPECT_EQ(connect.connectCodex(kServer), "Couldn't write Codex's config: its folder doesn't exist");
  EXPECT_EQ(connect.connectClaudeApp(kServer), "Couldn't write claude_desktop_config.json");
  EXPECT_FALSE(connect.codexInstalled());
}

TEST(Connect, ClaudeCodesOwnCommandComesFirstAndItsFailureIsMadeGood) {
  for (const int code : {0, 1, -1}) {
    MemoryLaptop laptop;
    const AIConnect connect(laptop.machine());
    EXPECT_FALSE(connect.claudeCodeInstalled());
    laptop.files().makeFolders("/home/anna/.claude/local/claude");  // no program
    laptop.files().put("/usr/local/bin/claude", "");
    laptop.files().put("/home/anna/.local/bin/claude", "");
    if (code >= 0) {
      laptop.tool("/home/anna/.local/bin/claude", [&](const std::vector<std::string>& arguments) {
        return CommandResult{arguments[1] == "remove" ? 1 : code, ""};
      });
    }
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

TEST(Connect, TheServerIsStartedByTheLinkWhereThereIsOne) {
  MemoryLaptop laptop;
  const AIConnect connect(laptop.machine());
  EXPECT_EQ(connect.serverCommand(true), (ServerCommand{"/usr/local/bin/tovi", {"mcp"}}));
  EXPECT_EQ(connect.serverCommand(false),
            (ServerCommand{"/Applications/Tovi.app/Contents/MacOS/Tovi", {"cli", "mcp"}}));
}

}  // namespace
}  // namespace tovi
