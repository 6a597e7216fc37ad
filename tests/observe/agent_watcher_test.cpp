#include "observe/AgentWatcher.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/Processes.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Names = std::vector<std::string>;

constexpr double kUsualInterval = 10;

class AgentWatcherTest : public ::testing::Test {
 protected:
  MemoryLaptop laptop;
  AgentWatcher watcher{laptop.machine()};
  std::vector<WatchedApp> watched;
  std::vector<AgentKind> custom;
  bool requests = true;

  Pid run(const std::string& path, Pid parent = 1, double watts = 0, const Names& arguments = {}) {
    return laptop.processes().add({.parent = parent, .path = path, .arguments = arguments, .watts = watts});
  }

  // A process that started so many seconds ago.
  Pid runningFor(double seconds, const std::string& path, Pid parent = 1) {
    const Microseconds start = laptop.processes().now() - static_cast<Microseconds>(seconds * 1e6);
    return laptop.processes().add({.parent = parent, .path = path, .start = start});
  }

  void look() { watcher.sample(watched, requests, custom); }
  void lookAfter(double seconds) {
    laptop.advance(seconds);
    look();
  }

  const AgentSession* session(std::string_view kind) const {
    const auto at = std::ranges::find_if(watcher.sessions(), [&](const auto& one) { return one.kind.id == kind; });
    return at == watcher.sessions().end() ? nullptr : &*at;
  }
  bool active(std::string_view kind) {
    const AgentSession* one = session(kind);
    return one != nullptr && one->lastActive == laptop.now();
  }
  double watts(std::string_view kind) const {
    const AgentSession* one = session(kind);
    return one == nullptr ? -1 : one->watts;
  }
  Names kinds() const {
    Names ids;
    for (const AgentSession& one : watcher.sessions()) ids.push_back(one.kind.id);
    return ids;
  }

  void ask(Pid pid, const std::string& name, std::optional<double> secondsAgo) {
    AssertionRecord record{pid, "caffeinate", {}, "PreventUserIdleSystemSleep", name, {}, {}, {}};
    if (secondsAgo) record.startedAt = laptop.now() + -*secondsAgo;
    laptop.edit([&](LaptopReport& report) { report.assertions.push_back(record); });
  }
};

TEST_F(AgentWatcherTest, TakesTheWrongProcessForAnAgentOrMissesOne) {
  struct Case {
    std::string path;
    Names arguments;
    std::string kind;  // empty: none
  };
  const std::vector<Case> cases{
      {"/usr/local/bin/claude", {}, "claude-code"},
      {"/Applications/Claude.app/Contents/MacOS/Claude", {}, ""},
      {"/opt/claude/bin/claude-helper", {}, ""},
      {"/usr/bin/copilot", {}, ""},
      {"/usr/bin/node", {"node", "/lib/node_modules/@openai/codex/bin/codex.js"}, "codex"},
      {"/usr/bin/node", {"node", "--a", "/x/@github/copilot/index.js"}, "copilot"},
      {"/usr/bin/node", {"node", "--a", "--b", "/lib/@openai/codex/cli.js"}, ""},
      {"/usr/bin/node", {"node", "/home/anna/@sourcegraph/amp/x", "@anthropic-ai/claude-code"}, "claude-code"},
      {"/usr/bin/node", {"node", "/x/@openai", "/codex/cli.js"}, ""},
      {"/usr/bin/node", {}, ""},
      {"/usr/bin/bun", {"bun", "/usr/bin/gemini"}, "gemini"},
      {"/usr/bin/python3.12", {"python3.12", "/usr/bin/aider"}, "aider"},
      {"/Library/Python", {"Python", "-m", "aider-chat"}, "aider"},
      {"/usr/bin/nodejs", {"nodejs", "/lib/@openai/codex/cli.js"}, ""},
      {"/bin/bash", {"bash", "/usr/bin/claude"}, ""},
  };
  for (const Case& one : cases) {
    const Pid pid = run(one.path, 1, 0, one.arguments);
    const AgentKind* kind = AgentWatcher::match(laptop.machine(), pid, one.path);
    EXPECT_EQ(kind == nullptr ? "" : kind->id, one.kind) << one.path << " " << ::testing::PrintToString(one.arguments);
  }
}

TEST_F(AgentWatcherTest, LosesAPersonsOwnAgentToAKnownKind) {
  run("/opt/bin/claude");
  run("/usr/bin/node", 1, 0, {"node", "/lib/@openai/codex/cli.js"});
  custom = {AgentKind::custom({"Mine", {"claude", "node"}, std::nullopt}),
            AgentKind::custom({"Second", {"node"}, 3.0})};
  look();
  ASSERT_EQ(kinds(), (Names{"custom:Mine"}));
  EXPECT_EQ(watcher.sessions()[0].instances, 2);
  EXPECT_EQ(watcher.sessions()[0].kind.idleWatts, 0.05);

  custom.clear();  // what was kept for a process goes with the list it was made from
  look();
  EXPECT_EQ(kinds(), (Names{"claude-code", "codex"}));
}

TEST_F(AgentWatcherTest, CountsAnAgentsOwnChildrenAsFurtherAgents) {
  const Pid first = run("/usr/bin/claude", 1, 1);
  run("/usr/bin/claude", run("/bin/zsh", first), 2);
  run("/usr/bin/codex", first, 4);
  run("/usr/bin/claude", 1, 8);
  look();
  lookAfter(kUsualInterval);
  EXPECT_EQ(session("claude-code")->instances, 2);
  EXPECT_EQ(session("claude-code")->pid, first);
  EXPECT_NEAR(watts("claude-code"), 15, 1e-6);  // both trees, the Codex in it included
  EXPECT_NEAR(watts("codex"), 4, 1e-6);
}

TEST_F(AgentWatcherTest, LosesWhatALaterInstanceDoesToWhatTheFirstDoesNot) {
  runningFor(1000, "/usr/bin/claude");
  const Pid second = runningFor(1000, "/usr/bin/claude");
  look();
  const Pid tool = run("/usr/bin/make", second);
  lookAfter(kUsualInterval);
  EXPECT_TRUE(session("claude-code")->toolRunning);
  laptop.processes().exit(tool);
  laptop.processes().setRates(second, 1, 0);
  lookAfter(kUsualInterval);
  EXPECT_TRUE(active("claude-code"));
}

TEST_F(AgentWatcherTest, TakesAnIdleDrawForWorkOrWorkForIdle) {
  for (const double joules : {0.2, 0.201}) {  // over ten seconds
    AgentWatcher fresh(laptop.machine());
    const Pid pid = run("/usr/bin/codex");
    laptop.processes().setCounters(pid, {1'000'000'000, 0});
    fresh.sample({}, true, {});
    EXPECT_EQ(fresh.sessions().at(0).lastActive, kDistantPast);
    laptop.advance(kUsualInterval);
    laptop.stepClock(-3600);  // a clock that was set makes no other watts
    laptop.processes().setCounters(pid, {1'000'000'000 + static_cast<std::uint64_t>(joules * 1e9), 0});
    fresh.sample({}, true, {});
    EXPECT_NEAR(fresh.sessions().at(0).watts, joules / 10, 1e-9);
    EXPECT_EQ(fresh.sessions().at(0).lastActive == laptop.now(), joules > 0.2) << joules;
    laptop.processes().exit(pid);
  }
}

TEST_F(AgentWatcherTest, CountsEnergyThatWasSpentBeforeOrElsewhere) {
  auto& processes = laptop.processes();
  const Pid agent = run("/usr/bin/codex");
  const Pid elsewhere = run("/usr/bin/make");
  processes.setCounters(agent, {90'000'000'000, 0});
  processes.setCounters(elsewhere, {50'000'000'000, 0});
  lookAfter(1);

  laptop.advance(5);
  processes.setParent(elsewhere, agent);  // an old process that joins the tree
  const Pid young = run("/usr/bin/cc", agent);
  const Pid secret = processes.add({.parent = agent, .path = "/usr/bin/ld", .hidesStart = true});
  processes.setCounters(young, {30'000'000'000, 0});
  processes.setCounters(secret, {70'000'000'000, 0});
  lookAfter(5);
  EXPECT_NEAR(watts("codex"), 3, 1e-9);  // all of the young one, and nothing else

  processes.setCounters(agent, {1'000'000'000, 0});  // a counter that fell is only a new baseline
  lookAfter(kUsualInterval);
  EXPECT_EQ(watts("codex"), 0);
  processes.setCounters(agent, {6'000'000'000, 0});
  processes.setCounters(elsewhere, {55'000'000'000, 0});
  lookAfter(kUsualInterval);
  EXPECT_NEAR(watts("codex"), 1, 1e-9);
}

TEST_F(AgentWatcherTest, TakesAnyChildForACommandOfTheAgent) {
  struct Case {
    double agentAge, childAge;
    std::string child;
    bool works;
  };
  const std::vector<Case> cases{
      {1000, 969.9, "/usr/bin/make", true},  {1000, 970.0, "/usr/bin/make", false},
      {1000, 1, "/usr/bin/make", true},      {1000, 0, "/usr/bin/make", false},
      {9000, 3599.9, "/usr/bin/make", true}, {9000, 3600, "/usr/bin/server", false},
      {1000, 100, "/usr/bin/claude", false}, {1000, 100, "/usr/bin/codex", true},
      {1000, 999, "/usr/bin/lsp", false},    {1000, 1200, "/usr/bin/adopted", false},
  };
  for (const Case& one : cases) {
    const Pid agent = runningFor(one.agentAge, "/usr/bin/claude");
    const Pid child = runningFor(one.childAge, one.child, agent);
    look();
    EXPECT_EQ(session("claude-code")->toolRunning, one.works) << one.agentAge << " " << one.childAge << one.child;
    EXPECT_EQ(active("claude-code"), one.works);
    laptop.processes().exit(child);
    laptop.processes().exit(agent);
  }

  const Pid editor = runningFor(1000, "/Applications/Editor.app/Contents/MacOS/Editor");
  runningFor(100, "/usr/bin/make", editor);
  watched = {{"/Applications/Editor.app", "Editor"}};
  look();
  EXPECT_FALSE(session("app:/Applications/Editor.app")->toolRunning);
}

TEST_F(AgentWatcherTest, ForgetsWhenAnAgentLastWorked) {
  const Pid quiet = run("/usr/bin/codex", 1, 1);
  run("/usr/bin/gemini", 1, 1);
  look();
  lookAfter(kUsualInterval);
  const Date worked = laptop.now();
  laptop.processes().setRates(quiet, 0, 0);
  lookAfter(kUsualInterval);
  EXPECT_EQ(kinds(), (Names{"gemini", "codex"}));  // the most recently active first
  EXPECT_EQ(session("codex")->lastActive, worked);

  laptop.processes().exit(quiet);
  run("/usr/bin/codex");  // another process is another session
  lookAfter(kUsualInterval);
  EXPECT_EQ(session("codex")->lastActive, kDistantPast);
}

TEST_F(AgentWatcherTest, KeepsAwakeForAnAgentThatWritesNothingOrMissesOneThatDoes) {
  auto& files = laptop.files();
  const std::string top = laptop.surroundings().home + "/.claude/projects";
  run("/usr/bin/claude");
  files.put(top + "/shop/one.jsonl", "{}");
  const std::string elsewhere = laptop.surroundings().home + "/elsewhere";
  files.put(elsewhere + "/one.jsonl", "{}");
  files.link(elsewhere, top + "/linked");
  look();
  EXPECT_EQ(session("claude-code")->lastActive, kDistantPast);  // the first look compares with nothing
  lookAfter(kUsualInterval);
  EXPECT_FALSE(active("claude-code"));

  const auto worksAfter = [&](const std::string& path) {
    laptop.advance(5);
    files.put(path, "{}");
    lookAfter(5);
    return active("claude-code");
  };
  EXPECT_TRUE(worksAfter(top + "/shop/one.jsonl"));           // a longer file
  EXPECT_TRUE(worksAfter(top + "/shop/two.jsonl"));           // a new one
  EXPECT_TRUE(worksAfter(top + "/a/b/c/d/deep.jsonl"));       // five levels down
  EXPECT_TRUE(worksAfter(top + "/a/b/c/d/e/deeper.jsonl"));   // its folder is new
  EXPECT_FALSE(worksAfter(top + "/a/b/c/d/e/deeper.jsonl"));  // what is in there is out of reach
  EXPECT_FALSE(worksAfter(top + "/.git/index"));
  EXPECT_FALSE(worksAfter(elsewhere + "/one.jsonl"));  // a link leads out
}

TEST_F(AgentWatcherTest, ComparesTranscriptsWithOneThatIsGone) {
  auto& files = laptop.files();
  const std::string folder = laptop.surroundings().home + "/.codex/sessions/2026";
  run("/usr/bin/codex");
  files.put(folder + "/old.jsonl", "{}");
  files.put(folder + "/future.jsonl", "{}");
  files.setModified(folder + "/future.jsonl", laptop.now() + 1e6);
  look();
  files.erase(folder + "/future.jsonl");
  lookAfter(kUsualInterval);
  EXPECT_FALSE(active("codex"));
  laptop.advance(1);
  files.put(folder + "/old.jsonl", "{} {}");
  look();
  EXPECT_TRUE(active("codex"));
}

TEST_F(AgentWatcherTest, WalksThroughTranscriptsWithoutEnd) {
  constexpr int kBudget = 20'000;
  auto& files = laptop.files();
  const std::string top = laptop.surroundings().home + "/.claude/projects/";
  run("/usr/bin/claude");
  for (int i = 0; i < kBudget; ++i) files.put(top + std::to_string(100'000 + i), "");
  files.put(top + "999999", "");
  const auto names = *files.list(laptop.surroundings().home + "/.claude/projects");
  look();
  laptop.advance(5);
  files.put(top + names.at(kBudget), "beyond");
  look();
  EXPECT_FALSE(active("claude-code"));
  files.put(top + names.at(kBudget - 1), "the last within");
  look();
  EXPECT_TRUE(active("claude-code"));
}

TEST_F(AgentWatcherTest, ShowsAFolderThatIsNoProject) {
  const std::string home = laptop.surroundings().home;
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases{
      {home + "/projects/shop", "shop"},
      {home, "~"},
      {"/", std::nullopt},
      {"/Applications/Claude.app/Contents", std::nullopt},
  };
  for (const auto& [folder, name] : cases) {
    const Pid pid = laptop.processes().add({.path = "/usr/bin/claude", .workingDirectory = folder});
    EXPECT_EQ(AgentWatcher::workingDirectoryName(laptop.machine(), pid), name) << folder;
    laptop.processes().exit(pid);
  }
  for (const char* folder : {"/", "/srv/second", "/srv/third"}) {
    laptop.processes().add({.path = "/usr/bin/claude", .workingDirectory = folder});
  }
  look();
  EXPECT_EQ(session("claude-code")->project, "second") << "the first one that is known";
}

TEST_F(AgentWatcherTest, MissesTheClaudeAppOrCountsItTwice) {
  const std::string bundle = "/Applications/Claude.app";
  const Pid app = run(bundle + "/Contents/MacOS/Claude");
  const Pid helper = run(bundle + "/Contents/Frameworks/Claude Helper.app/Contents/MacOS/Claude Helper", app, 1);
  laptop.edit([&](LaptopReport& report) {
    for (const Pid pid : {app, helper})
      report.applications.push_back({pid, "Claude", "com.anthropic.claudefordesktop", bundle, true});
  });
  look();
  lookAfter(kUsualInterval);
  ASSERT_EQ(kinds(), (Names{"claude-app"}));
  EXPECT_EQ(session("claude-app")->instances, 1);
  EXPECT_TRUE(active("claude-app"));
  EXPECT_EQ(watcher.protectedBundles(), (std::set<std::string, std::less<>>{bundle}));
}

TEST_F(AgentWatcherTest, CountsPartsOfAWatchedApplicationSeparately) {
  const std::string bundle = "/Applications/Render.app";
  const Pid app = run(bundle + "/Contents/MacOS/Render", 1, 1);
  run(bundle + "/Contents/Helper.app/Contents/MacOS/Helper", app, 2);
  const Pid tool = run("/usr/bin/ffmpeg", run("/bin/zsh"), 4);
  run("/usr/bin/ffmpeg", tool, 8);
  run("/opt/Render.app/Contents/MacOS/Render");
  watched = {{"ffmpeg", "ffmpeg"}, {bundle, "Render"}, {"", "Nothing"}};
  look();
  lookAfter(kUsualInterval);
  EXPECT_EQ(kinds(), (Names{"app:ffmpeg", "app:" + bundle}));
  EXPECT_EQ(session("app:ffmpeg")->instances, 1);
  EXPECT_NEAR(watts("app:ffmpeg"), 12, 1e-6);
  EXPECT_EQ(session("app:" + bundle)->instances, 1);
  EXPECT_NEAR(watts("app:" + bundle), 3, 1e-6);
}

TEST_F(AgentWatcherTest, LeavesAnAgentsTreeOrItsLaunchersUnprotected) {
  const Pid terminal = run("/Applications/Terminal.app/Contents/MacOS/Terminal");
  const Pid shell = run("/bin/zsh", terminal);
  const Pid agent = run("/usr/bin/claude", shell);
  const Pid child = run("/Applications/Xcode.app/Contents/Developer/usr/bin/swift", agent);
  run("/bin/zsh", terminal);  // a neighbour
  const Pid keeper = run("/usr/bin/caffeinate", run("/Applications/Export.app/Contents/MacOS/Export"));
  ask(keeper, "export", 60);
  look();
  const std::unordered_set<Pid> expected{terminal, shell, agent, child, keeper, *laptop.processes().parent(keeper)};
  EXPECT_EQ(watcher.protectedPids(), expected);
  EXPECT_EQ(watcher.protectedBundles(),
            (std::set<std::string, std::less<>>{"/Applications/Export.app", "/Applications/Terminal.app",
                                                "/Applications/Xcode.app"}));
}

TEST_F(AgentWatcherTest, CallsAForgottenRequestWorkOrWorkForgotten) {
  ask(run("/usr/bin/caffeinate"), "young", 21599.9);
  ask(run("/usr/bin/caffeinate"), "old", 21600.0);
  ask(run("/usr/bin/caffeinate"), "older", 30000.0);
  look();
  ASSERT_EQ(kinds(), (Names{"request:caffeinate"}));
  EXPECT_EQ(watcher.sessions()[0].detail, "young");
  EXPECT_EQ(watcher.sessions()[0].lastActive, laptop.now());
  ASSERT_EQ(watcher.blockers().size(), 2u);
  EXPECT_EQ(watcher.blockers()[0].name + " " + watcher.blockers()[1].name, "older old");
  EXPECT_FALSE(watcher.protectedPids().contains(watcher.blockers()[0].pid));

  requests = false;
  look();
  EXPECT_TRUE(watcher.sessions().empty());
  EXPECT_TRUE(watcher.protectedPids().empty());
  EXPECT_EQ(watcher.blockers().size(), 2u);
}

TEST_F(AgentWatcherTest, CountsARequestOfOurOwnOrOfAnAgentOrOneProcessTwice) {
  const Pid agent = run("/usr/bin/codex");
  ask(run("/usr/bin/caffeinate", agent), "the agent's", 30000);
  ask(laptop.processes().self(), "our own", 30000);
  const Pid twice = run("/usr/bin/caffeinate");
  ask(twice, "first", 10);
  ask(twice, "second", 30000);
  look();
  EXPECT_EQ(kinds(), (Names{"request:caffeinate", "codex"}));
  EXPECT_EQ(session("request:caffeinate")->instances, 1);
  EXPECT_EQ(session("request:caffeinate")->detail, "first");
  EXPECT_TRUE(watcher.blockers().empty());
}

TEST_F(AgentWatcherTest, LetsARequestWithoutADateStayYoungForEver) {
  const Pid pid = run("/usr/bin/caffeinate");
  ask(pid, "build", std::nullopt);
  look();
  const Date first = laptop.now();
  lookAfter(21599);
  EXPECT_TRUE(watcher.blockers().empty());
  lookAfter(1);
  ASSERT_EQ(watcher.blockers().size(), 1u);
  EXPECT_EQ(watcher.blockers()[0].since, first);

  laptop.edit([](LaptopReport& report) { report.assertions.clear(); });  // once unseen its age is forgotten
  lookAfter(1);
  ask(pid, "build", std::nullopt);
  look();
  EXPECT_TRUE(watcher.blockers().empty());
}

TEST_F(AgentWatcherTest, MissesAnInterpreterThatBecameAnAgent) {
  auto& processes = laptop.processes();
  const Names agent{"node", "/lib/@openai/codex/cli.js"};
  const Pid young = run("/usr/bin/node", 1, 0, {"node", "launcher.js"});
  look();
  EXPECT_EQ(session("codex"), nullptr);
  processes.exec(young, "/usr/bin/node", agent);
  lookAfter(kUsualInterval);
  EXPECT_NE(session("codex"), nullptr);
  processes.exec(young, "/usr/bin/vim", agent);
  lookAfter(kUsualInterval);
  EXPECT_EQ(session("codex"), nullptr);
  processes.exit(young);

  const Pid old = runningFor(10'000, "/usr/bin/node");
  look();
  processes.exec(old, "/usr/bin/node", agent);
  for (int i = 0; i < 16; ++i) lookAfter(kUsualInterval);
  EXPECT_NE(session("codex"), nullptr);

  processes.add({.pid = old, .path = "/usr/bin/vim"});  // the number of an agent, and no agent
  look();
  EXPECT_EQ(session("codex"), nullptr);
}

}  // namespace
}  // namespace tovi
