// The panel's picture of the machine, and what no world may do to any report.

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

#include "core/Json.h"
#include "engine/Desk.h"
#include "engine/ReportTexts.h"

namespace tovi {
namespace {

using Json = nlohmann::json;

std::set<std::string> keysOf(const Json& object) {
  std::set<std::string> keys;
  for (const auto& [key, value] : object.items()) keys.insert(key);
  return keys;
}

TEST(Panel, LeavesOutWhatHasNoValue) {
  World world;
  world.laptop.edit([](LaptopReport& report) { report.battery.reset(); });
  const std::set<std::string> always{"keeps",       "headline",       "detail",   "holding",    "lidClosed",
                                     "mode",        "preset",         "snoozed",  "holds",      "agents",
                                     "watch",       "warnings",       "host",     "canMeasure", "checkIn",
                                     "autoApprove", "wakeNeedsSetup", "modeLine", "figure",     "figureCaption"};
  EXPECT_EQ(keysOf(world.engine().panelJSON()), always);
}

TEST(Panel, CarriesStateSettingsAndFigures) {
  Desk desk(R"({"mode": "on", "preset": "longest", "checkInMinutes": 15, "quietMinutes": 5})");
  desk.engine();
  desk.laptop.advance(20);
  Engine& engine = desk.engine();
  engine.addHold("training", {}, {}, {});
  engine.stayAwake(90);
  engine.warning = "Something is stuck";
  engine.powerEffects = std::map<std::string, double>{{"total", 3.456}};
  engine.powerUnclear = std::set<std::string>{"apps"};
  engine.powerTestAborted = "the lid was opened";
  const Json panel = engine.panelJSON();
  EXPECT_EQ(panel["keeps"], true);
  EXPECT_EQ(panel["headline"], "Close the lid: it keeps working");
  EXPECT_EQ(panel["mode"], "on");
  EXPECT_EQ(panel["preset"], "longest");
  EXPECT_EQ(panel["host"], "laptop");
  EXPECT_EQ(panel["checkIn"], 15);
  EXPECT_NEAR(panel["alwaysUntil"].get<double>(), unixSeconds(desk.laptop.now()) + 5400, 1);
  EXPECT_EQ(panel["holds"][0]["reason"], "training");
  EXPECT_EQ(panel["warnings"], Json::array({"Something is stuck"}));
  EXPECT_EQ(panel["savings"], Json({{"total", 3.46}}));
  EXPECT_EQ(panel["savingsUnclear"], Json::array({"apps"}));
  EXPECT_EQ(panel["powerTestAborted"], "the lid was opened");
  EXPECT_EQ(panel["canMeasure"], false) << "the lid is open";
  EXPECT_FALSE(panel.contains("powerTest"));
  EXPECT_TRUE(panel["battery"].get<std::string>().ends_with(" left with the lid closed")) << panel["battery"];
  EXPECT_TRUE(panel["figureCaption"].get<std::string>().starts_with("left with lid closed"));
  desk.lid(true);
  EXPECT_EQ(engine.panelJSON()["canMeasure"], true);
  ASSERT_EQ(engine.startPowerTest(false, false), std::nullopt);
  EXPECT_EQ(engine.panelJSON()["canMeasure"], false);
  EXPECT_EQ(engine.panelJSON()["powerTest"], "Measuring, 1 of 4");
}

TEST(Panel, ListsAgentsWithTheirQuietTimeAndWhetherTheyCount) {
  Desk desk(R"({"quietMinutes": 5})");
  desk.engine();
  desk.laptop.advance(20);
  Json agent = desk.engine().panelJSON()["agents"][0];
  EXPECT_EQ(agent, Json({{"id", "claude-code"},
                         {"name", "Claude Code"},
                         {"project", "project"},
                         {"working", true},
                         {"idleMinutes", 0},
                         {"sleepsIn", 0},
                         {"instances", 1},
                         {"keeps", true}}));
  desk.laptop.processes().setRates(desk.claude, 0, 0);
  desk.laptop.advance(120);
  desk.engine().setKeepsAwake("codex", false);
  agent = desk.engine().panelJSON()["agents"][0];
  EXPECT_EQ(agent["working"], false);
  EXPECT_NEAR(agent["sleepsIn"].get<double>(), 180, 15);
  desk.engine().setKeepsAwake("claude-code", false);
  agent = desk.engine().panelJSON()["agents"][0];
  EXPECT_EQ(agent["keeps"], false);
  EXPECT_EQ(agent["sleepsIn"], 0);
}

TEST(Panel, OffersRunningAppsThatCanBeWatched) {
  Desk desk;
  desk.app("/System/Library/CoreServices/Finder.app", "com.apple.finder", "Finder");
  desk.app("/Applications/Tovi.app", "com.norvane.Tovi", "Tovi");
  for (int at = 0; at < 20; ++at) {
    const std::string name = "Zed" + std::to_string(at);
    desk.app("/Applications/" + name + ".app", "com.example." + name, name);
  }
  desk.engine().addWatched({"ffmpeg", "ffmpeg"});
  desk.engine().addWatched({kNotes, "Notes"});
  const Json watch = desk.engine().panelJSON()["watch"];
  ASSERT_EQ(watch.size(), 14u);
  EXPECT_EQ(watch[0], Json({{"name", "ffmpeg"}, {"on", true}}));
  EXPECT_EQ(watch[1], Json({{"name", "Notes"}, {"on", true}}));
  EXPECT_EQ(watch[2], Json({{"name", "Docker Desktop"}, {"on", false}}));
  for (const Json& entry : watch) {
    EXPECT_NE(entry["name"], "Finder");
    EXPECT_NE(entry["name"], "Tovi");
  }
}

TEST(Panel, ThePlanNamesWhatClosingTheLidDoesToEachApp) {
  Desk desk;
  desk.laptop.processes().setRates(desk.notes, 6, 1);
  desk.engine();
  desk.laptop.advance(60);
  std::map<std::string, ClosedPlanRow> plan;
  for (const ClosedPlanRow& row : desk.engine().closedPlan()) plan[row.name] = row;
  EXPECT_EQ(plan["Notes"].rule, AppRule::pause);
  EXPECT_EQ(plan["Notes"].words, "pauses until the lid opens");
  EXPECT_EQ(plan["Docker Desktop"].rule, AppRule::slow);
  EXPECT_EQ(plan["Music"].rule, AppRule::leave);
  EXPECT_EQ(plan["Terminal"].words, "keeps running (Tovi needs it)") << "the agent runs in it";
}

// Each app's watts are a digit of their own, so that the sum tells all shares.
TEST(Panel, TheEstimateKnowsWhatTheClosedLidLeavesToEachApp) {
  Desk desk;
  Engine& engine = desk.engine();
  desk.laptop.advance(20);  // the agent's terminal is known
  engine.battery = std::nullopt;
  engine.systemWatts = std::nullopt;
  engine.closedDraw = std::nullopt;
  const auto app = [](const char* id, std::optional<std::string> bundle, double watts, bool system = false) {
    return AppUsage{id, id, std::move(bundle), watts, 0, {}, system};
  };
  engine.apps = std::vector{app("/System/Library/X.app", "com.apple.x", 4000000, true),
                            app("ffmpeg", {}, 400000),
                            app(kTerminal, "com.example.terminal", 40000),
                            app("/Applications/Odd.app", {}, 4000),
                            app(kDocker, "com.docker.docker", 400),
                            app(kMusic, "com.spotify.client", 40),
                            app(kNotes, "com.example.notes", 4)};
  const double kept = 1.6 + 400000 + 40000;
  const auto estimate = [&](Preset preset, const std::map<std::string, AppRule>& rules = {}) {
    Config next = engine.config;
    next.preset = preset;
    next.appRules = rules;
    engine.config = next;
    return engine.closedEstimate();
  };
  EXPECT_NEAR(estimate(Preset::speed), kept + 4444, 1e-6);
  EXPECT_NEAR(estimate(Preset::balanced), kept + 1111, 1e-6);
  EXPECT_NEAR(estimate(Preset::longest), kept + 1140, 1e-6);
  EXPECT_NEAR(estimate(Preset::speed, {{"com.example.notes", AppRule::pause}, {"com.spotify.client", AppRule::slow}}),
              kept + 4410, 1e-6);
  EXPECT_NEAR(estimate(Preset::longest, {{"com.example.notes", AppRule::leave}}), kept + 1144, 1e-6);

  // What the power report calls busy: the person's apps that something could be done about.
  Json suspects = engine.powerReport()["suspects"];
  const auto busy = std::ranges::find_if(suspects, [](const Json& suspect) { return suspect["id"] == "apps"; });
  ASSERT_NE(busy, suspects.end());
  EXPECT_EQ((*busy)["title"], "Busy apps: /Applications/Odd.app 4000.0 W (slow), " + std::string(kDocker) +
                                  " 400.0 W (slow), " + kMusic + " 40.0 W (leave), " + kNotes + " 4.0 W (leave)");
}

// Numbers as JSON and as words: nothing that isn't one.
void expectSound(const std::string& text, const std::string& where) {
  for (const char* word : {"nan", "NaN", "inf", "Inf"}) {
    const auto at = text.find(word);
    EXPECT_EQ(at, std::string::npos) << where << ": " << text.substr(at == std::string::npos ? 0 : at, 40);
  }
}

// A null is what JSON makes of a figure that is none.
void expectFigures(const Json& value, const std::string& key, const std::string& where) {
  if (value.is_null()) {
    EXPECT_TRUE(key.starts_with("learned_")) << where << " " << key;
  }
  if (value.is_number_float()) {
    EXPECT_TRUE(std::isfinite(value.get<double>())) << where << " " << key;
  }
  if (value.is_object()) {
    for (const auto& [name, member] : value.items()) expectFigures(member, name, where);
  } else if (value.is_array()) {
    for (const Json& member : value) expectFigures(member, key, where);
  }
}

class RandomWorld {
 public:
  explicit RandomWorld(unsigned seed) : random_(seed) {}

  bool flip(double chance = 0.5) { return std::bernoulli_distribution(chance)(random_); }
  int upTo(int most) { return std::uniform_int_distribution<>(0, most)(random_); }
  double figure() {
    constexpr double kEdges[] = {0, 0.1, 0.3, 1, 20, 70, 599, 1e9, 1e308, 5e-324, -1, -1e308};
    return flip(0.3) ? kEdges[upTo(std::size(kEdges) - 1)] : std::uniform_real_distribution<>(0, 60)(random_);
  }
  std::optional<double> maybe() { return flip(0.7) ? std::optional{figure()} : std::nullopt; }
  Date moment(Date now) { return flip(0.1) ? kDistantPast : now + (figure() * (flip(0.2) ? -1 : 1)); }

  void fill(Engine& engine, MemoryLaptop& laptop) {
    const Date now = laptop.now();
    Config config;
    config.mode = static_cast<Mode>(upTo(2));
    config.preset = static_cast<Preset>(upTo(2));
    config.menuBarText = static_cast<MenuBarText>(upTo(4));
    config.batteryFloor = upTo(80);
    config.quietMinutes = 1 + upTo(239);
    config.lockOnClose = flip();
    config.screenOffNoLock = flip();
    if (flip()) config.alwaysUntil = std::abs(figure()) + unixSeconds(now);
    engine.config = config;
    laptop.edit([&](LaptopReport& report) {
      report.lid = static_cast<LaptopLid>(upTo(2));
      if (flip(0.2)) report.battery.reset();
    });
    engine.setupReady = flip(0.9);
    engine.lidClosed = flip();
    engine.holding = flip();
    engine.screenOff = flip();
    engine.holdReason = flip() ? std::optional<std::string>("training") : std::nullopt;
    engine.blockedReason = flip(0.2) ? std::optional<std::string>("Battery at 10%") : std::nullopt;
    std::optional<BatteryReading> battery;
    if (flip(0.8)) {
      battery = BatteryReading{upTo(100), std::abs(figure()), flip(), flip(), {}};
    }
    engine.battery = battery;
    engine.systemWatts = maybe();
    engine.openDraw = maybe();
    engine.closedDraw = maybe();
    engine.fullWh = std::max(figure(), 20.5);
    engine.liveSavingW = figure();
    std::vector<AppUsage> apps;
    for (int at = upTo(6); at > 0; --at) {
      AppUsage app;
      app.id = flip(0.8) ? "/Applications/A" + std::to_string(at) + ".app" : "tool";
      app.name = flip(0.1) ? "\xff\xfe" : "A" + std::to_string(at);
      if (flip()) app.bundleID = "com.example.a" + std::to_string(at);
      app.watts = std::abs(figure());
      app.system = flip(0.2);
      apps.push_back(app);
    }
    engine.apps = apps;
    std::vector<AgentSession> sessions;
    for (int at = upTo(3); at > 0; --at) {
      AgentSession session;
      session.kind.id = flip(0.8) ? "claude-code" : "request:x";
      session.kind.name = "Claude Code";
      session.lastActive = moment(now);
      sessions.push_back(session);
    }
    engine.sessions = sessions;
    SavingsStats stats;
    for (int at = upTo(4); at > 0; --at) stats.add({moment(now), figure(), figure(), figure(), figure(), {}, {}, {}});
    engine.stats = stats;
    std::map<std::string, double> effects;
    for (const char* key : {"total", "apps", "closed_with", "closed_without", "screen"}) {
      if (flip()) effects[key] = figure();
    }
    engine.powerEffects = effects;
    engine.powerTestRunning = flip(0.3);
    if (flip()) {
      Receipt receipt;
      receipt.closedAt = moment(now);
      if (flip()) receipt.openedAt = moment(now);
      if (flip()) receipt.sleptAt = moment(now);
      receipt.startPercent = upTo(100);
      receipt.endPercent = upTo(100);
      engine.receipt = receipt;
    }
  }

 private:
  std::mt19937 random_;
};

TEST(AnyWorld, ReportsAreSoundInIt) {
  World world;
  Engine& engine = world.engine();
  for (unsigned seed = 1; seed <= 1500; ++seed) {
    const std::string where = "seed " + std::to_string(seed);
    RandomWorld random(seed);
    random.fill(engine, world.laptop);

    for (const Json& report : {engine.panelJSON(), engine.powerReport()}) {
      expectFigures(report, "", where);
      expectSound(json::compact(report), where);
    }
    for (const std::string& line :
         {engine.statusLine(), engine.modeLine(), engine.lidOutcome().detail, engine.batteryLine().value_or("x"),
          engine.menuBarTitle().value_or("x"), engine.receiptLine(engine.receipt.get().value_or(Receipt{}))}) {
      EXPECT_FALSE(line.empty()) << where;
      expectSound(line, where);
    }
    for (const auto& [key, text] : engine.phoneFigures()) expectSound(text, where + " " + key);
    EXPECT_GE(engine.alwaysLeft(), 0) << where;
    (void)engine.recentReceipt();
    (void)engine.closedPlan();

    if (const auto& battery = engine.battery.get(); !engine.lidClosed && battery) {
      const auto present = engine.systemWatts.get() ? engine.systemWatts.get() : battery->usableWatts();
      if (present) {
        EXPECT_LE(engine.closedEstimate(), *present) << where;
      }
    }
    if (engine.battery.get()) {
      std::optional<double> last;
      const double draw = engine.closedEstimate();
      for (int percent = 100; percent >= 0; --percent) {
        engine.battery.update([&](std::optional<BatteryReading>& battery) { battery->percent = percent; });
        const auto hours = engine.hoursLeft(draw);
        if (hours && last) {
          EXPECT_LE(*hours, *last) << where << " at " << percent;
        }
        if (hours) {
          EXPECT_TRUE(std::isfinite(*hours) && *hours >= 0) << where;
          last = hours;
        }
      }
    }
  }
}

}  // namespace
}  // namespace tovi
