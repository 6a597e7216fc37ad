#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "agents/AutoApprove.h"
#include "agents/MeddledFiles.h"
#include "core/Deaths.h"
#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Json = nlohmann::json;
using Texts = std::optional<std::string>;

constexpr char kClaude[] = "/home/anna/.claude/settings.json";
constexpr char kCodex[] = "/home/anna/.codex/config.toml";
constexpr char kOurLines[] = "sandbox_mode = \"danger-full-access\"\napproval_policy = \"never\"\n";
constexpr char kClaudeUnreadable[] =
    "Couldn't read ~/.claude/settings.json (it isn't plain JSON), so nothing was changed.";
constexpr char kClaudeOdd[] =
    "~/.claude/settings.json has a value that Tovi couldn't put back later, so nothing was changed.";
constexpr char kCodexUnreadable[] = "Couldn't read ~/.codex/config.toml, so nothing was changed.";
constexpr char kRecordUnreadable[] = "Couldn't read auto-approve.json, so nothing was changed.";
constexpr char kCodexUnchanged[] = "Couldn't read ~/.codex/config.toml, so Codex wasn't changed.";

struct Desk {
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  AutoApprove approve{laptop.machine(), state};

  MemoryFiles& files() { return laptop.files(); }
  Json claude() { return Json::parse(files().read(kClaude).value_or("{}"), nullptr, false); }
  std::string codex() { return files().read(kCodex).value_or(""); }
  std::string mode() { return claude()["permissions"].value("defaultMode", "none"); }
};

// What stood in the person's home before.
struct Home {
  const char* name;
  Texts claude, codex;
  bool linked = false;

  void furnish(Desk& desk) const {
    const auto put = [&](const char* path, const Texts& text, const std::string& target) {
      if (!text) return;
      desk.files().put(linked ? target : path, *text, 0640);
      if (!linked) return;
      desk.files().makeFolders(std::string(path).substr(0, std::string(path).rfind('/')));
      desk.files().link(target, path);
    };
    put(kClaude, claude, "/home/anna/dotfiles/claude");
    put(kCodex, codex, "/home/anna/dotfiles/codex");
  }
  Json claudeBefore() const { return Json::parse(claude.value_or("{}")); }
  std::string codexBefore() const { return codex.value_or(""); }
};

const char kOwnClaude[] =
    R"({"z": 9007199254740993, "permissions": {"allow": ["a/b"], "defaultMode": "acceptEdits"},
        "skipDangerousModePermissionPrompt": false})";
const char kOwnCodex[] =
    "# mine\r\n  approval_policy=\"on-request\" # why \r\nnotify = [\r\n  \"[x]\",\r\n]\r\nsandbox_mode = "
    "'''read-\r\nonly'''\r\n"
    "[profiles.a]\r\napproval_policy = \"untrusted\"";

const Home kHomes[] = {
    {"nothing", {}, {}},
    {"plain files", R"({"model": "x", "permissions": {"allow": []}})",
     "model = \"x\"\n[a]\napproval_policy = \"on-request\"\n"},
    {"values of the person's own", kOwnClaude, kOwnCodex},
    {"linked files", kOwnClaude, kOwnCodex, true},
    {"our values already",
     R"({"permissions":{"defaultMode":"bypassPermissions"},"skipDangerousModePermissionPrompt":true})",
     "approval_policy = \"never\"\nsandbox_mode = \"danger-full-access\""},
};

void expectBefore(Desk& desk, const Home& home) {
  EXPECT_FALSE(desk.approve.isOn());
  EXPECT_EQ(desk.claude(), home.claudeBefore());
  EXPECT_EQ(desk.codex(), home.codexBefore());
  for (const char* folder : {"/home/anna/.claude", "/home/anna/.codex", "/home/anna/dotfiles"}) {
    for (const std::string& name : desk.files().list(folder).value_or(std::vector<std::string>{})) {
      EXPECT_FALSE(name.ends_with("tmp")) << folder << "/" << name << " is left over";
    }
  }
  for (const char* path : {kClaude, kCodex}) {
    if (!home.linked) continue;
    EXPECT_EQ(desk.files().linkStatus(path)->kind, FileStatus::Kind::other);
    EXPECT_EQ(desk.files().status(path)->mode, 0640u);
  }
}

void expectOn(Desk& desk) {
  EXPECT_TRUE(desk.approve.isOn());
  EXPECT_EQ(desk.mode(), "bypassPermissions");
  EXPECT_EQ(desk.claude()["skipDangerousModePermissionPrompt"], true);
  EXPECT_NE(desk.codex().find("approval_policy = \"never\""), std::string::npos);
  EXPECT_NE(desk.codex().find("sandbox_mode = \"danger-full-access\""), std::string::npos);
}

TEST(Approve, OnAndOffLeavesEveryHomeAsItWas) {
  for (const Home& home : kHomes) {
    SCOPED_TRACE(home.name);
    Desk desk;
    home.furnish(desk);
    EXPECT_EQ(desk.approve.turnOff(), std::nullopt) << "it isn't on";
    EXPECT_EQ(desk.approve.turnOn(), std::nullopt);
    expectOn(desk);
    const auto operations = desk.laptop.faults().operations();
    EXPECT_EQ(desk.approve.turnOn(), std::nullopt);
    EXPECT_EQ(desk.laptop.faults().operations(), operations) << "on already";
    EXPECT_EQ(desk.approve.turnOff(), std::nullopt);
    expectBefore(desk, home);
  }
  Desk nothing;
  ASSERT_EQ(nothing.approve.turnOn(), std::nullopt);
  EXPECT_EQ(nothing.codex(), kOurLines);
}

TEST(Approve, ADeathAtAnyWriteIsMadeGoodByTurningOff) {
  for (const Home& home : {kHomes[0], kHomes[1], kHomes[2], kHomes[3]}) {
    for (const bool powerLost : {false, true}) {
      SCOPED_TRACE(home.name);
      const auto on = [](Desk& desk) { EXPECT_EQ(desk.approve.turnOn(), std::nullopt); };
      const auto off = [](Desk& desk) { EXPECT_EQ(desk.approve.turnOff(), std::nullopt); };
      const auto guarded = [&] {
        auto desk = std::make_unique<Desk>();
        home.furnish(*desk);
        return desk;
      };
      const auto open = [&] {
        auto desk = guarded();
        on(*desk);
        return desk;
      };
      const auto offAgain = [&](Desk& desk) {
        off(desk);
        expectBefore(desk, home);
      };
      atEveryDeath(powerLost, guarded, on, offAgain);
      atEveryDeath(powerLost, open, off, offAgain);
      // What somebody else has written since stays.
      const auto changed = [&](Desk& desk) {
        desk.files().put(kClaude, R"({"permissions": {"defaultMode": "plan"}})");
        desk.files().put(kCodex, "approval_policy = \"untrusted\"\n");
        off(desk);
        EXPECT_EQ(desk.mode(), "plan");
        EXPECT_EQ(desk.codex(), "approval_policy = \"untrusted\"\n");
      };
      atEveryDeath(powerLost, guarded, on, changed);
      atEveryDeath(powerLost, open, off, changed);
    }
  }
}

TEST(Approve, AFailureAtAnyStepIsSaidAndCanBeUndone) {
  const Home& home = kHomes[2];
  for (const bool turningOff : {false, true}) {
    bool failed = true;
    for (std::int64_t step = 1; failed; ++step) {
      ASSERT_LT(step, 100);
      SCOPED_TRACE((turningOff ? "off, step " : "on, step ") + std::to_string(step));
      Desk desk;
      home.furnish(desk);
      desk.state.dir();
      if (turningOff) {
        EXPECT_EQ(desk.approve.turnOn(), std::nullopt);
      }
      const std::int64_t number = desk.laptop.faults().operations() + step;
      desk.laptop.faults().failOperation(number);
      const auto said = turningOff ? desk.approve.turnOff() : desk.approve.turnOn();
      failed = desk.laptop.faults().operations() >= number;
      desk.laptop.faults().forgetOrders();
      if (turningOff) {
        EXPECT_EQ(said.has_value(), desk.approve.isOn());
      } else if (!said) {
        expectOn(desk);
      }
      if (!desk.approve.isOn()) expectBefore(desk, home);
      EXPECT_EQ(desk.approve.turnOff(), std::nullopt);
      expectBefore(desk, home);
      EXPECT_TRUE(failed || step > 8);
    }
  }
}

TEST(Approve, WhatCannotBePutBackIsNotChanged) {
  struct Case {
    const char* name;
    const char* claude;
    const char* codex;
    unsigned mode;
    const char* error;
  };
  const Case cases[] = {
      {"comments", "{ /* mine */ }", "", 0644, kClaudeUnreadable},
      {"empty", "", "", 0644, kClaudeUnreadable},
      {"permissions of another kind", R"({"permissions": ["x"]})", "", 0644, kClaudeOdd},
      {"a mode of another kind", R"({"permissions": {"defaultMode": 3}})", "", 0644, kClaudeOdd},
      {"a prompt of another kind", R"({"skipDangerousModePermissionPrompt": "no"})", "", 0644, kClaudeOdd},
      {"an open string", "{}", "a = \"\"\"\n", 0644, kCodexUnreadable},
      {"a table of that name", "{}", "[sandbox_mode]\n", 0644, kCodexUnreadable},
      {"read-only files", "{}", "", 0444,
       "Couldn't write ~/.claude/settings.json (it is read-only), so nothing was changed."},
  };
  for (const Case& one : cases) {
    Desk desk;
    desk.files().put(kClaude, one.claude, one.mode);
    desk.files().put(kCodex, one.codex, one.mode);
    const auto operations = desk.laptop.faults().operations();
    EXPECT_EQ(desk.approve.turnOn(), one.error) << one.name;
    EXPECT_FALSE(desk.approve.isOn()) << one.name;
    EXPECT_LE(desk.laptop.faults().operations(), operations + 1) << one.name << ": the state folder, no more";
  }
  Desk full;
  full.files().setFull(true);
  EXPECT_EQ(full.approve.turnOn(), "Tovi couldn't write to its folder, so nothing was changed.");
  EXPECT_FALSE(full.approve.isOn());
}

TEST(Approve, WhatThePersonChangedSinceStays) {
  Desk desk;
  kHomes[2].furnish(desk);
  ASSERT_EQ(desk.approve.turnOn(), std::nullopt);
  Json settings = desk.claude();
  settings["permissions"]["defaultMode"] = "plan";
  desk.files().put(kClaude, settings.dump());
  std::string config = desk.codex();
  const std::string ours = "\"never\"";
  config.replace(config.find(ours), ours.size(), "\"on-failure\"");
  desk.files().put(kCodex, config);
  ASSERT_EQ(desk.approve.turnOff(), std::nullopt);
  EXPECT_EQ(desk.mode(), "plan");
  EXPECT_EQ(desk.claude()["skipDangerousModePermissionPrompt"], false);
  EXPECT_NE(desk.codex().find("  approval_policy = \"on-failure\" \r\n"), std::string::npos);
  EXPECT_NE(desk.codex().find("sandbox_mode = '''read-\r\nonly'''\r\n"), std::string::npos);

  Desk gone;
  ASSERT_EQ(gone.approve.turnOn(), std::nullopt);
  gone.files().erase(kClaude);
  gone.files().rename("/home/anna/.codex", "/home/anna/elsewhere");
  ASSERT_EQ(gone.approve.turnOff(), std::nullopt) << "a folder that the person removed is no reason to stay";
  EXPECT_FALSE(gone.files().exists(kClaude) || gone.files().exists("/home/anna/.codex")) << "they stay away";
}

TEST(Approve, AKeyThatThePersonMadeATableOfStaysAndTheOtherIsPutBack) {
  for (const std::string theirs :
       {"[approval_policy]\nx = 1\n", "approval_policy.x = 1\n", "[[approval_policy]]\n", "[approval_policy.y]\n"}) {
    Desk desk;
    desk.files().put(kCodex, "approval_policy = 'on-request'\nsandbox_mode = 'read-only'\n");
    ASSERT_EQ(desk.approve.turnOn(), std::nullopt);
    desk.files().put(kCodex, "sandbox_mode = \"danger-full-access\"\n" + theirs);
    EXPECT_EQ(desk.approve.turnOff(), std::nullopt) << theirs;
    EXPECT_EQ(desk.codex(), "sandbox_mode = 'read-only'\n" + theirs);
  }
}

TEST(Approve, WhatAnAgentWritesMeanwhileIsNotLost) {
  for (const std::string path : {kClaude, kCodex}) {
    for (const bool turningOff : {false, true}) {
      Desk desk;
      MeddledFiles meddled(desk.laptop.machine());
      const AutoApprove approve(meddled.machine(), desk.state);
      kHomes[2].furnish(desk);
      if (turningOff) {
        EXPECT_EQ(approve.turnOn(), std::nullopt);
      }
      const std::string theirs = *desk.files().read(path) + "\n";
      meddled.meddle(MeddledFiles::At::write, path + ".tovi-tmp", [&] { desk.files().put(path, theirs); });
      const auto said = turningOff ? approve.turnOff() : approve.turnOn();
      EXPECT_TRUE(said && said->ends_with(": it has just changed")) << said.value_or("") << path;
      EXPECT_EQ(desk.files().read(path), theirs);
      EXPECT_TRUE(approve.isOn()) << "to be tried again";
    }
  }
}

TEST(Approve, TwoAtOnceKeepTheRecordOfWhatStoodThere) {
  Desk desk;
  kHomes[2].furnish(desk);
  MeddledFiles meddled(desk.laptop.machine());
  const AutoApprove second(meddled.machine(), desk.state);
  meddled.meddle(MeddledFiles::At::lock, "/approve.lock", [&] { EXPECT_EQ(desk.approve.turnOn(), std::nullopt); });
  EXPECT_EQ(second.turnOn(), std::nullopt);
  meddled.meddle(MeddledFiles::At::lock, "/approve.lock", [&] { EXPECT_EQ(desk.approve.turnOff(), std::nullopt); });
  EXPECT_EQ(second.turnOff(), std::nullopt);
  expectBefore(desk, kHomes[2]);

  const char busy[] = "Tovi is just changing this elsewhere, so nothing was changed.";
  auto lock = desk.files().tryLock(desk.state.path("approve.lock"));
  EXPECT_EQ(desk.approve.turnOn(), busy);
  expectBefore(desk, kHomes[2]);
  lock.reset();
  ASSERT_EQ(desk.approve.turnOn(), std::nullopt);
  lock = desk.files().tryLock(desk.state.path("approve.lock"));
  EXPECT_EQ(desk.approve.turnOff(), busy);
  expectOn(desk);
}

TEST(Approve, TurningOffFailsWithTheOtherAgentGuardedAgain) {
  const auto breakJournal = [](const char* text) {
    return [text](Desk& desk) { desk.files().put(desk.state.path("auto-approve.json"), text); };
  };
  const std::pair<std::function<void(Desk&)>, const char*> cases[] = {
      {breakJournal("{"), kRecordUnreadable},
      {breakJournal(R"({"claudeTouched": true})"), kRecordUnreadable},
      {breakJournal(R"({"claudeTouched": true, "codexTouched": true, "claudeSkip": "x"})"), kRecordUnreadable},
      {breakJournal(R"({"claudeTouched": true, "codexTouched": true, "codexPath": "/Volumes/Work/codex/config.toml"})"),
       "Couldn't find /Volumes/Work/codex, so Codex wasn't changed. If it is gone for good, make an empty folder "
       "there."},
      {[](Desk& desk) { desk.files().put(kClaude, "{,}"); }, kClaudeUnreadable},
      {[](Desk& desk) { desk.files().setMode("/home/anna/.claude", 0); }, kClaudeUnreadable},
      {[](Desk& desk) { desk.files().setMode("/home/anna/.codex", 0); }, kCodexUnchanged},
      {[](Desk& desk) { desk.files().put(kCodex, std::string(kOurLines) + "x = '''"); }, kCodexUnchanged},
  };
  for (const auto& [harm, error] : cases) {
    Desk desk;
    ASSERT_EQ(desk.approve.turnOn(), std::nullopt);
    harm(desk);
    const auto claude = desk.files().read(kClaude);
    const auto codex = desk.codex();
    EXPECT_EQ(desk.approve.turnOff(), error);
    EXPECT_TRUE(desk.approve.isOn());
    EXPECT_EQ(desk.codex(), codex);
    if (std::string_view{error}.find("Codex wasn't changed") != std::string_view::npos) {
      EXPECT_EQ(desk.claude(), Json::object());
    } else {
      EXPECT_EQ(desk.files().read(kClaude), claude);
    }
  }
}

TEST(Approve, TurnsOffTheConfigThatItTurnedOn) {
  Desk desk;
  MeddledFiles there(desk.laptop.machine());
  there.surroundings.codexHome = "/home/anna/codex-home";
  desk.files().put("/home/anna/codex-home/config.toml", "a = 1\n");
  ASSERT_EQ(AutoApprove(there.machine(), desk.state).turnOn(), std::nullopt);
  EXPECT_NE(desk.files().read("/home/anna/codex-home/config.toml"), "a = 1\n");
  ASSERT_EQ(desk.approve.turnOff(), std::nullopt) << "started without CODEX_HOME";
  EXPECT_EQ(desk.files().read("/home/anna/codex-home/config.toml"), "a = 1\n");
  EXPECT_FALSE(desk.files().exists(kCodex));
}

}  // namespace
}  // namespace tovi
