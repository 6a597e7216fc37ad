#include <gtest/gtest.h>

#include <random>

#include "core/Config.h"
#include "core/SettingsSchema.h"
#include "remote/Phone.h"

namespace tovi {
namespace {

using RemoteCrypto::kMostReplyBytes;
using RemoteCrypto::phoneReply;

std::size_t sizeOf(const Json& reply) { return json::compact(reply).size(); }

// The panel with a filler that brings the whole reply to so many bytes.
Json filled(Json panel, std::size_t bytes) {
  panel["detail"] = "";
  const std::size_t rest = sizeOf({{"ok", true}, {"panel", panel}});
  panel["detail"] = std::string(bytes - rest, 'x');
  return panel;
}

TEST(PhoneReply, TellsTheOutcomeAndNothingElseOfTheResult) {
  const Json panel{{"headline", "h"}};
  EXPECT_EQ(phoneReply({{"ok", true}, {"status", "s"}, {"hold", "h"}, {"next", 5}}, panel, "wake"),
            (Json{{"ok", true}, {"next", 5}, {"panel", panel}}));
  EXPECT_EQ(phoneReply({{"ok", false}, {"error", "no"}}, panel, "set"),
            (Json{{"ok", false}, {"error", "no"}, {"panel", panel}}));
  EXPECT_EQ(phoneReply(panel, panel, "panel"), (Json{{"ok", true}, {"panel", panel}}))
      << "a panel has no ok of its own";
  const Json settings = Json::array({{{"key", "k"}, {"type", "t"}, {"value", 1}, {"description", "d"}}});
  const Json reduced = Json::array({{{"key", "k"}, {"type", "t"}, {"value", 1}}});
  EXPECT_EQ(phoneReply({{"ok", true}, {"settings", settings}}, panel, "schema")["settings"], reduced);
  EXPECT_FALSE(phoneReply({{"ok", true}, {"settings", settings}}, panel, "set").contains("settings"));
  EXPECT_FALSE(phoneReply({{"ok", true}, {"settings", {1}}}, panel, "schema").contains("settings"));
}

TEST(PhoneReply, IsCutInTheStatedOrderAndNoFurtherThanNeeded) {
  const Json watch = Json::array({{{"name", "On"}, {"on", true}}, {{"name", "Off"}, {"on", false}}, {{"name", "?"}}});
  const Json on = Json::array({{{"name", "On"}, {"on", true}}});
  Json agents = Json::array();
  for (int i = 0; i < 6; ++i) agents.push_back({{"name", "agent" + std::to_string(i)}});
  const Json panel{{"watch", watch},  {"agents", agents},    {"holds", Json::array({"hold"})},
                   {"savings", "1"},  {"savingsUnclear", 2}, {"weekLine", "3"},
                   {"drawLine", "4"}, {"figureCaption", "5"}};
  const auto cut = [&](std::size_t bytes) {
    return phoneReply({{"ok", true}}, filled(panel, bytes), "panel")["panel"];
  };

  EXPECT_EQ(cut(2800), filled(panel, 2800)) << "2,800 bytes fit";
  Json left = filled(panel, 2801);
  left["watch"] = on;
  EXPECT_EQ(cut(2801), left) << "what isn't watched goes first";

  const std::size_t afterWatch = sizeOf(watch) - sizeOf(on);
  left = filled(panel, 2801 + afterWatch);
  left["watch"] = on;
  left["agents"].erase(left["agents"].begin() + 4, left["agents"].end());
  left.erase("holds");
  EXPECT_EQ(cut(2801 + afterWatch), left) << "then agents beyond four, and holds with them";

  const Json bare{
      {"savings", "1"}, {"savingsUnclear", 2}, {"weekLine", "3"}, {"drawLine", "4"}, {"figureCaption", "5"}};
  std::vector<std::string> gone;
  std::size_t bytes = kMostReplyBytes + 1;
  for (const char* next : {"savings", "savingsUnclear", "weekLine", "drawLine", "figureCaption"}) {
    gone.push_back(next);
    left = filled(bare, bytes);
    for (const auto& key : gone) left.erase(key);
    EXPECT_EQ(phoneReply({{"ok", true}}, filled(bare, bytes), "panel")["panel"], left) << "then " << next;
    bytes += sizeOf({{next, bare[next]}}) - 1;
  }
}

// Lists, texts and numbers of any size under the panel's keys and others.
Json anyPanel(std::mt19937& random) {
  const auto upTo = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
  const auto text = [&] {
    static const std::string kPieces[] = {"a", "\"", "\n", "ü", "☕", "\xff", std::string(1, '\0'), "Xcode", "\\"};
    std::string made;
    for (int left = upTo(upTo(9) == 0 ? 3000 : 40); left > 0; --left) made += kPieces[upTo(8)];
    return made;
  };
  Json panel = Json::object();
  for (const char* key :
       {"headline", "detail", "savings", "savingsUnclear", "weekLine", "drawLine", "figureCaption", "host"}) {
    if (upTo(1) == 1) panel[key] = text();
  }
  for (const char* key : {"watch", "agents", "holds", "warnings"}) {
    if (upTo(3) == 0) continue;
    Json list = Json::array();
    for (int left = upTo(40); left > 0; --left) list.push_back({{"name", text()}, {"on", upTo(1) == 1}});
    panel[key] = upTo(9) == 0 ? Json(text()) : list;
  }
  return panel;
}

TEST(PhoneReply, NeverExceedsItsRoomWhateverThePanelAndTheErrorHold) {
  std::mt19937 random(20260105);
  for (int round = 0; round < 300; ++round) {
    const Json panel = anyPanel(random);
    Json result{{"ok", round % 2 == 0}};
    if (round % 5 == 0) {
      static const std::string kLetters[] = {"\x01", "x", "ü", "語", "😀"};
      std::string error;
      for (int left = round * 3; left > 0; --left) error += kLetters[(round / 5) % 5];
      result["error"] = error;
    }
    const Json reply = phoneReply(result, panel, "panel");
    ASSERT_LE(sizeOf(reply), kMostReplyBytes) << round;
    ASSERT_TRUE(reply["panel"].is_object());
    ASSERT_EQ(reply["ok"], result["ok"]);
    if (sizeOf({{"ok", true}, {"panel", panel}}) <= kMostReplyBytes - 1 && !result.contains("error")) {
      ASSERT_EQ(reply["panel"], panel) << "cut without need";
    }
  }
}

TEST(PhoneReply, TheSettingsFitBesideSomeOfThePanel) {
  MemoryLaptop laptop;
  const StateFiles state(laptop.machine());
  const Json agent{{"id", "claude"}, {"name", "Claude Code"}, {"project", "project"}, {"working", true}};
  const Json panel{{"headline", "Close the lid: it keeps going"},
                   {"agents", {agent, agent, agent, agent, agent, agent}}};
  const Json reply = phoneReply(SettingsSchema::describe(Config{}, state), panel, "schema");
  EXPECT_GT(reply["settings"].size(), 20u);
  EXPECT_LE(sizeOf(reply), kMostReplyBytes);
  EXPECT_GE(reply["panel"].value("agents", Json::array()).size(), 1u) << "one by one, not all at once";
}

TEST(PhoneReply, ALongErrorCostsItselfAndNotThePanel) {
  const Json panel{{"headline", "Close the lid: it keeps going"}};
  std::string name;
  for (int i = 0; i < 966; ++i) name += "語";
  const Json reply = phoneReply({{"ok", false}, {"error", "unknown setting " + name}}, panel, "set");
  EXPECT_EQ(reply["panel"], panel);
  EXPECT_TRUE(reply["error"].get<std::string>().starts_with("unknown setting 語語"));
}

}  // namespace
}  // namespace tovi
