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

TEST(Panel, CarriesStateSettingsAndFiguresAndLeavesOutWhatHasNoValue) {
  Desk desk(R"({"mode": "on", "preset": "longest"})");
  Engine& engine = desk.start();
  std::string keys;
  const Json bare = engine.panelJSON();
  for (const auto& [key, value] : bare.items()) keys += key + " ";
  EXPECT_EQ(
      keys,
      "agents autoApprove battery batteryLine batteryState canMeasure checkIn detail drawLine figure figureCaption "
      "headline holding holds host keeps lidClosed mode modeLine preset snoozed wakeNeedsSetup warnings watch ");
  desk.laptop.advance(20);
  engine.addHold("training", {}, {}, {});
  engine.stayAwake(90);
  engine.warning = "Something is stuck";
  engine.powerEffects = std::map<std::string, double>{{"total", 3.456}};
  engine.powerUnclear = std::set<std::string>{"apps"};
  engine.powerTestAborted = "the lid was opened";
  const Json panel = engine.panelJSON();
  EXPECT_TRUE(panel["keeps"] == true && panel["mode"] == "on" && panel["preset"] == "longest") << panel;
  EXPECT_NEAR(panel["alwaysUntil"].get<double>(), unixSeconds(desk.laptop.now()) + 5400, 1);
  EXPECT_EQ(panel["holds"][0]["reason"], "training");
  EXPECT_EQ(panel["warnings"], Json::array({"Something is stuck"}));
  EXPECT_EQ(panel["savings"], Json({{"total", 3.46}}));
  EXPECT_EQ(panel["savingsUnclear"], Json::array({"apps"}));
  EXPECT_EQ(panel["powerTestAborted"], "the lid was opened");
  EXPECT_EQ(panel["canMeasure"], false) << "the lid is open";
  desk.lid(true);
  EXPECT_EQ(engine.panelJSON()["canMeasure"], true);
  ASSERT_EQ(engine.startPowerTest(false, false), std::nullopt);
  EXPECT_EQ(engine.panelJSON()["canMeasure"], false);
  EXPECT_EQ(engine.panelJSON()["powerTest"], "Measuring, 1 of 4");
}

TEST(Panel, ListsAgentsWithTheirQuietTimeAndWhetherTheyCount) {
  Desk desk(R"({"quietMinutes": 5})");
  desk.start();
  desk.laptop.advance(20);
  const auto agent = [&] { return desk.engine().panelJSON()["agents"][0]; };
  EXPECT_EQ(agent(), Json::parse(R"({"id": "claude-code", "name": "Claude Code", "project": "project", "working": true,
                                     "idleMinutes": 0, "sleepsIn": 0, "instances": 1, "keeps": true})"));
  desk.laptop.processes().setRates(desk.claude, 0, 0);
  desk.laptop.advance(120);
  EXPECT_EQ(agent()["working"], false);
  EXPECT_NEAR(agent()["sleepsIn"].get<double>(), 180, 15);
  desk.engine().setKeepsAwake("claude-code", false);
  EXPECT_EQ(agent()["keeps"], false);
  EXPECT_EQ(agent()["sleepsIn"], 0);
}

TEST(Panel, OffersRunningAppsThatCanBeWatched) {
  Desk desk;
  desk.app("/System/Library/CoreServices/Finder.app", "com.apple.finder", "AFinder");
  desk.app("/Applications/Tovi.app", "com.norvane.Tovi", "ATovi");
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    const std::string name = std::string("Zed") + letter;
    desk.app("/Applications/" + name + ".app", "com.example." + name, name);
  }
  desk.engine().addWatched({"ffmpeg", "ffmpeg"});
  desk.engine().addWatched({kNotes, "Notes"});
  const Json watch = desk.engine().panelJSON()["watch"];
  EXPECT_EQ(watch.size(), 14u);
  EXPECT_EQ(watch[0], Json({{"name", "ffmpeg"}, {"on", true}}));
  EXPECT_EQ(watch[1], Json({{"name", "Notes"}, {"on", true}}));
  EXPECT_EQ(watch[2], Json({{"name", "Docker Desktop"}, {"on", false}})) << "parts of the system aren't offered";
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

  std::string plan;
  estimate(Preset::longest);
  for (const ClosedPlanRow& row : engine.closedPlan()) plan += row.name + " " + row.words + "\n";
  EXPECT_EQ(plan,
            "/Applications/Terminal.app keeps running (Tovi needs it)\n/Applications/Odd.app runs slower\n"
            "/Applications/Docker.app runs slower\n/Applications/Music.app keeps running\n"
            "/Applications/Notes.app pauses until the lid opens\n");

  // What the power report calls busy: the person's apps that something could be done about.
  const Json report = engine.powerReport();
  const auto busy = std::ranges::find(report["suspects"], "apps", [](const Json& suspect) { return suspect["id"]; });
  ASSERT_NE(busy, report["suspects"].end());
  EXPECT_EQ((*busy)["title"], "Busy apps: /Applications/Odd.app 4000.0 W (slow), " + std::string(kDocker) +
                                  " 400.0 W (slow), " + kMusic + " 40.0 W (leave), " + kNotes + " 4.0 W (pause)");
}

// Nothing that should be a number is none; JSON makes a null of those.
void expectSound(const std::string& text, const std::string& where) {
  for (const char* word : {"nan", "NaN", "inf", "Inf", "null"}) {
    EXPECT_EQ(text.find(word), text.npos) << where << ": " << text;
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

  void fill(Engine& engine, const Date now) {
    Config config;
    config.mode = static_cast<Mode>(upTo(2));
    config.preset = static_cast<Preset>(upTo(2));
    config.menuBarText = static_cast<MenuBarText>(upTo(4));
    config.batteryFloor = upTo(80);
    if (flip()) config.alwaysUntil = std::abs(figure()) + unixSeconds(now);
    engine.config = config;
    engine.setupReady = flip(0.9);
    engine.lidClosed = flip();
    engine.holding = flip();
    std::optional<BatteryReading> battery;
    if (flip(0.8)) battery = BatteryReading{upTo(100), std::abs(figure()), flip(), flip(), {}};
    engine.battery = battery;
    engine.systemWatts = maybe();
    engine.openDraw = maybe();
    engine.closedDraw = maybe();
    engine.fullWh = std::max(figure(), 20.5);
    engine.liveSavingW = figure();
    std::vector<AppUsage> apps;
    for (int at = upTo(6); at > 0; --at) {
      const std::string name = flip(0.1) ? "\xff\xfe" : "A" + std::to_string(at);
      apps.push_back({"/Applications/" + name + ".app", name, {}, std::abs(figure()), 0, {}, flip(0.2)});
    }
    engine.apps = apps;
    AgentSession session;
    session.kind.id = session.kind.name = "claude-code";
    session.lastActive = moment(now);
    engine.sessions = std::vector(upTo(3), session);
    SavingsStats stats;
    for (int at = upTo(4); at > 0; --at) stats.add({moment(now), figure(), figure(), figure(), figure(), {}, {}, {}});
    engine.stats = stats;
    engine.powerEffects = std::map<std::string, double>{
        {"total", figure()}, {"apps", figure()}, {"closed_with", figure()}, {"closed_without", figure()}};
    engine.powerTestRunning = flip(0.3);
    Receipt receipt;
    receipt.closedAt = moment(now);
    if (flip()) receipt.openedAt = moment(now);
    if (flip()) receipt.sleptAt = moment(now);
    receipt.startPercent = upTo(100);
    engine.receipt = receipt;
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
    random.fill(engine, world.laptop.now());
    expectSound(json::compact(engine.panelJSON()), where);
    Json report = engine.powerReport();
    for (const char* unknown : {"learned_open_watts", "learned_closed_watts"}) report.erase(unknown);
    expectSound(json::compact(report), where);
    for (const std::string& line :
         {engine.statusLine(), engine.modeLine(), engine.lidOutcome().detail, engine.batteryLine().value_or("x"),
          engine.menuBarTitle().value_or("x"), engine.receiptLine(*engine.receipt.get())}) {
      EXPECT_FALSE(line.empty()) << where;
      expectSound(line, where);
    }
    for (const auto& [key, text] : engine.phoneFigures()) expectSound(text, where + " " + key);
    EXPECT_GE(engine.alwaysLeft(), 0) << where;

    const auto battery = engine.battery.get();
    if (!battery) continue;
    const auto present = engine.systemWatts.get() ? engine.systemWatts.get() : battery->usableWatts();
    const double draw = engine.closedEstimate();
    EXPECT_TRUE(!present || engine.lidClosed || draw <= *present) << where;
    double last = INFINITY;
    for (int percent = 100; percent >= 0; --percent) {
      engine.battery.update([&](std::optional<BatteryReading>& reading) { reading->percent = percent; });
      const auto hours = engine.hoursLeft(draw);
      EXPECT_TRUE(!hours || (std::isfinite(*hours) && *hours >= 0 && *hours <= last)) << where << " at " << percent;
      last = hours.value_or(last);
    }
  }
}

}  // namespace
}  // namespace tovi
