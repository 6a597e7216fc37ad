// The public settings: what each takes and refuses, and what it changes.

#include "core/SettingsSchema.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "core/Config.h"
#include "core/StateFiles.h"
#include "core/TopicName.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Json = nlohmann::json;

constexpr char kOnOrOff[] = "on or off";
constexpr char kOnlyOn[] = "to be turned off in Tovi's Settings (it can only be turned on from here)";
constexpr char kOnlyUp[] = "to be lowered in Tovi itself (it can only be raised from here)";
constexpr char kTopic[] = "letters, numbers, - and _ (max 64)";
constexpr char kFloor[] = "a number 0-80";
constexpr char kQuiet[] = "a number 1-240";
constexpr char kPeriod[] = "0, 15, 30 or 60";

// What the setting refuses with; empty if it takes the value.
std::string set(Config& config, std::string_view key, const Json& value) {
  const SettingSpec* spec = SettingsSchema::spec(key);
  return spec != nullptr ? std::string{spec->set(config, value).value_or("")} : "no such setting";
}

Json get(const Config& config, std::string_view key) { return SettingsSchema::spec(key)->get(config); }

TEST(SettingsSchema, AnOnOffSettingTouchesAFieldOfItsOwnOnly) {
  std::set<std::string> touched;
  for (const SettingSpec& spec : SettingsSchema::all()) {
    if (spec.type != "bool" || spec.key == "heat_guard") continue;
    Config config;
    const bool on = get(config, spec.key);
    EXPECT_EQ(set(config, spec.key, on ? "OFF" : "Yes"), "") << spec.key;
    EXPECT_EQ(get(config, spec.key), Json(!on)) << spec.key;
    const Json changes = Json::diff(Config{}.toJson(), config.toJson());
    ASSERT_EQ(changes.size(), 1u) << spec.key;
    EXPECT_TRUE(touched.insert(changes[0]["path"]).second) << spec.key;
    EXPECT_EQ(set(config, spec.key, "maybe"), kOnOrOff) << spec.key;
  }
  EXPECT_EQ(touched.size(), 18u);
}

TEST(SettingsSchema, GoodValuesAreTakenAsTextAndAsTheirOwnType) {
  const struct {
    const char* key;
    const char* value;  // JSON, as is what is expected
    const char* expected;
  } cases[] = {
      {"mode", R"("When Busy")", R"("auto")"},
      {"mode", R"("always")", R"("on")"},
      {"preset", R"("Full Speed")", R"("full_speed")"},
      {"check_in_minutes", R"("15")", "15"},
      {"check_in_minutes", "60.9", "60"},
      {"quiet_minutes", R"(" 7.9 ")", "7"},
      {"quiet_minutes", R"("999999")", "240"},
      {"quiet_minutes", "-5", "1"},
      {"battery_floor", R"("25%")", "25"},
      {"battery_floor", "95", "80"},
      {"heat_guard", R"("on")", "true"},
      {"only_on_power", "1", "true"},
      {"menubar", R"("timeLeft")", R"("timeLeft")"},
      {"ntfy_topic", R"(" my-Topic_1\n")", R"("my-Topic_1")"},
      {"ntfy_topic", R"("größe-東京")", R"("größe-東京")"},
      {"ntfy_topic", "12345", R"("12345")"},
      {"ntfy_topic", R"(" ")", R"("")"},
  };
  for (const auto& row : cases) {
    Config config;
    config.ntfyTopic = "before";
    EXPECT_EQ(set(config, row.key, Json::parse(row.value)), "") << row.key << row.value;
    EXPECT_EQ(get(config, row.key), Json::parse(row.expected)) << row.key << row.value;
  }
}

TEST(SettingsSchema, BadValuesAreRefusedAndChangeNothing) {
  const struct {
    const char* key;
    const char* values;  // a JSON array
    const char* refusal;
  } cases[] = {
      {"mode", R"(["", "sometimes", "when-busy", "automatic", "on ", true, 1, null])", "auto, on or off"},
      {"preset", R"(["", "fast", false, null])", "max_battery, balanced or full_speed"},
      {"check_in_minutes", R"([20, -15, "", "15 min", true, null])", kPeriod},
      {"quiet_minutes", R"(["", "ten", "inf", "nan", "1e999", 1e6, -1e6, "1000000", true, null, [7]])", kQuiet},
      {"battery_floor", R"(["", "%", "low", 1e300, false, null])", kFloor},
      {"battery_floor", R"([39, "39%", 0, -5])", kOnlyUp},
      {"heat_guard", R"(["", "maybe", null, []])", kOnOrOff},
      {"heat_guard", R"([false, "off", 0])", kOnlyOn},
      {"only_on_power", R"([false, "no", 0])", kOnlyOn},
      {"menubar", R"(["Battery", "", "time_left", 0, null])", "none, battery, watts, timeLeft, timer"},
      {"appearance", R"(["Dark", "", " dark", null])", "system, light or dark"},
      {"ntfy_topic", R"(["a b", "a/b", "a.b", 1.5, null, [], {}, "€", "a\u0000"])", kTopic},
  };
  for (const auto& row : cases) {
    Config config;
    config.batteryFloor = 40;
    config.onlyOnPower = true;
    config.ntfyTopic = "mine";
    const Config before = config;
    for (const Json& value : Json::parse(row.values)) {
      EXPECT_EQ(set(config, row.key, value), row.refusal) << row.key << value;
      EXPECT_EQ(config.encoded(), before.encoded()) << row.key << value;
    }
  }
}

TEST(TopicName, CountsCharactersAndTakesWholeOnesOnly) {
  std::string umlauts;
  for (int count = 0; count < 64; ++count) umlauts += "ü";
  EXPECT_TRUE(isTopicName(umlauts));
  EXPECT_FALSE(isTopicName(umlauts + "x"));
  for (const char* text : {"agent²", "½", "①", "हिन्दी", "日本"}) EXPECT_TRUE(isTopicName(text)) << text;
  for (const char* text : {"", "\xff", "a\xc3", " a", "½€", "\u0301a", "a\xf0\x9f\x98\x80"})
    EXPECT_FALSE(isTopicName(text)) << text;
}

TEST(SettingsSchema, SafetyCannotBeLoosenedByAnyRoute) {
  Config config;
  config.heatGuard = false;
  EXPECT_EQ(set(config, "heat_guard", "off"), kOnlyOn) << "off already, and still no way to ask for it";
  EXPECT_EQ(set(config, "heat_guard", "on"), "");
  EXPECT_EQ(set(config, "only_on_power", "off"), "") << "off already";
  config.batteryFloor = 80;
  EXPECT_EQ(set(config, "battery-limit", "100%"), "");
  EXPECT_EQ(config.batteryFloor, 80);
  config.batteryFloor = 90;  // from elsewhere
  EXPECT_EQ(set(config, "battery_floor", 95), kOnlyUp);
}

TEST(SettingsSchema, AlwaysRemembersWhereItCameFromUntilItIsLeft) {
  Config config;
  config.mode = Mode::off;
  set(config, "mode", "on");
  config.alwaysUntil = 1767600000;
  set(config, "mode", "on");
  EXPECT_EQ(config.modeBeforeAlways, Mode::off);
  EXPECT_EQ(config.alwaysUntil, std::nullopt);
  set(config, "mode", "auto");
  EXPECT_EQ(config.encoded(), Config{}.encoded());
}

TEST(SettingsSchema, KeysHaveOtherNames) {
  for (const auto& [name, key] :
       {std::pair{"battery-limit", "battery_floor"}, {"Screen-Off-When-Closed", "screen_off"}}) {
    const SettingSpec* spec = SettingsSchema::spec(name);
    ASSERT_NE(spec, nullptr) << name;
    EXPECT_EQ(spec->key, key);
  }
  for (const char* key : {"", "batteryFloor", "heat guard", "mode "})
    EXPECT_EQ(SettingsSchema::spec(key), nullptr) << key;
}

TEST(SettingsSchema, ListingCanBeTypedBackIn) {
  MemoryLaptop laptop;
  const StateFiles state(laptop.machine());
  Config config;
  config.batteryFloor = 0;
  config.ntfyTopic = "mine";
  const Config before = config;
  const Json listing = SettingsSchema::describe(config, state);
  ASSERT_EQ(listing["settings"].size(), SettingsSchema::all().size());
  for (const Json& setting : listing["settings"]) {
    const std::string key = setting["key"];
    EXPECT_EQ(set(config, key, setting["value"]), "") << key;
    if (!setting.contains("allowed") || setting["type"] == "int") continue;
    for (const Json& choice : setting["allowed"]) {
      Config scratch;
      const bool safetyOff = key == "heat_guard" && choice == "off";
      EXPECT_EQ(set(scratch, key, choice), safetyOff ? kOnlyOn : "") << key << choice;
    }
  }
  EXPECT_EQ(config.encoded(), before.encoded());
}

}  // namespace
}  // namespace tovi
