// Wordings and small parsers that every surface shares.

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Dates.h"
#include "core/Field.h"
#include "core/Hold.h"
#include "core/Json.h"
#include "core/Modes.h"
#include "core/PanelFormat.h"
#include "core/Text.h"

namespace tovi {
namespace {

TEST(PanelFormat, SpansReadTheSameEverywhere) {
  const struct {
    double seconds;
    const char* words;
  } cases[] = {
      {-5, "0 min"},   {0, "0 min"},        {59, "0 min"},           {60, "1 min"},       {3599, "59 min"},
      {3600, "1 h"},   {3660, "1 h 1 min"}, {5400, "1 h 30 min"},    {7200, "2 h"},       {35940, "9 h 59 min"},
      {36000, "10 h"}, {37440, "10 h"},     {std::nan(""), "0 min"}, {HUGE_VAL, nullptr},
  };
  for (const auto& row : cases) {
    if (row.words != nullptr) {
      EXPECT_EQ(PanelFormat::minutes(row.seconds), row.words) << row.seconds;
    } else {
      EXPECT_FALSE(PanelFormat::minutes(row.seconds).empty());
    }
  }
  EXPECT_EQ(PanelFormat::hm(1.5), "1 h 30 min");
  EXPECT_EQ(PanelFormat::hm(10.4), "10 h");
  EXPECT_EQ(PanelFormat::hm(61.0 / 60), "1 h 1 min");  // a sum that falls just short in binary
}

TEST(PanelFormat, DurationsTurnToHoursAtNinetyMinutes) {
  EXPECT_EQ(PanelFormat::duration(0.75), "0 min");
  EXPECT_EQ(PanelFormat::duration(89.9), "89 min");
  EXPECT_EQ(PanelFormat::duration(90), "1.5 hours");
  EXPECT_EQ(PanelFormat::duration(120), "2 hours");
  EXPECT_EQ(PanelFormat::duration(20000), "333.3 hours");
}

TEST(Modes, PeopleWriteThemInManyWays) {
  for (const char* word : {"on", "Always", "ALWAYS ON", "always_on"}) EXPECT_EQ(parseMode(word), Mode::on) << word;
  for (const char* word : {"auto", "when busy", "When_Busy", "busy"}) {
    EXPECT_EQ(parseMode(word), Mode::automatic) << word;
  }
  for (const char* word : {"", "automatic", "on ", "when-busy"}) EXPECT_EQ(parseMode(word), std::nullopt) << word;
  for (const char* word : {"longest", "battery", "Longest Battery", "max_battery", "max"}) {
    EXPECT_EQ(parsePreset(word), Preset::longest) << word;
  }
  EXPECT_EQ(parsePreset("Full Speed"), Preset::speed);
  EXPECT_EQ(parsePreset("fast"), std::nullopt);
}

TEST(Hold, AnUnreadableBoundNeverTurnsIntoNoBound) {
  Hold hold;
  hold.id = "0a1b2c3d";
  hold.reason = "training \xff";
  hold.created = dateFromUnix(1767600000.25);
  hold.until = dateFromUnix(1767603600.5);
  hold.pid = 77;
  hold.owner = 78;
  hold.pidStart = 1767599999123456ULL;
  auto value = hold.toJson();
  EXPECT_EQ(Hold::fromJson(value), hold);
  for (const char* key : {"until", "pid", "owner", "pidStart", "id", "reason", "created"}) {
    auto broken = value;
    broken[key] = nlohmann::json::array();
    EXPECT_EQ(Hold::fromJson(broken), std::nullopt) << key;
  }
  value["pid"] = 4294967296;
  EXPECT_EQ(Hold::fromJson(value), std::nullopt);
  EXPECT_EQ(Hold::fromJson(nlohmann::json::array()), std::nullopt);
}

TEST(Hold, IdsAreShortLowerCaseAndDiffer) {
  const std::string id = Hold::newId();
  EXPECT_EQ(id.size(), 8u);
  EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(id, Hold::newId());
  EXPECT_EQ(newUuid().size(), 36u);
}

TEST(Json, WrongTypesAreMissingAndNothingThrows) {
  const auto value = json::parse(R"({"n": 5.0, "big": 18446744073709551615, "half": 0.5, "t": "x", "b": true})");
  ASSERT_TRUE(value);
  EXPECT_EQ(json::integerAt(*value, "n"), 5);
  EXPECT_EQ(json::integerAt(*value, "big"), std::nullopt);
  EXPECT_EQ(json::integerAt(*value, "half"), std::nullopt);
  EXPECT_EQ(json::integerAt(*value, "b"), std::nullopt);
  EXPECT_EQ(json::numberAt(*value, "t"), std::nullopt);
  EXPECT_EQ(json::textAt(*value, "n"), std::nullopt);
  EXPECT_EQ(json::textAt(nlohmann::json::array(), "n"), std::nullopt);
  EXPECT_EQ(json::parse("{\"a\": \"\xff\"}"), std::nullopt);
  EXPECT_EQ(json::parse(std::string(100000, '[')), std::nullopt);
  EXPECT_EQ(json::pretty("\xff"), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(json::compact(json::rounded(7.249999999, 1)), "7.2");
  EXPECT_EQ(json::compact(json::rounded(-0.04, 1)), "0.0");
  EXPECT_EQ(json::compact(json::rounded(std::nan(""), 1)), "null");
}

TEST(Dates, Iso8601GoesBothWaysAndRejectsTheRest) {
  EXPECT_EQ(dates::iso8601(dateFromUnix(1767600000.9)), "2026-01-05T08:00:00Z");
  EXPECT_EQ(dates::parseIso8601("2026-01-05T08:00:00Z"), dateFromUnix(1767600000));
  for (const char* text : {"", "2026-01-05", "2026-01-05T08:00:00", "2026-13-05T08:00:00Z", "2026-01-05T25:00:00Z",
                           "2026-01-05T08:00:00Zx"}) {
    EXPECT_EQ(dates::parseIso8601(text), std::nullopt) << text;
  }
  EXPECT_EQ(dates::iso8601(dateFromUnix(HUGE_VAL)), "");
}

TEST(Field, TellsOnlyOfRealChangesAndSurvivesObserversThatLeave) {
  Field<int> field;
  int calls = 0;
  Registration second;
  const Registration first = field.observe([&] {
    ++calls;
    second.reset();
  });
  second = field.observe([&] { calls += 100; });
  field = 0;
  EXPECT_EQ(calls, 0);
  field = 1;
  field = 1;
  field = 2;
  EXPECT_EQ(calls, 102);  // the second heard of the first change, which was already under way
}

TEST(Text, CutsAndSplits) {
  EXPECT_EQ(text::trimmed(" \t a b \n"), "a b");
  EXPECT_EQ(text::trimmed(" \n"), "");
  EXPECT_EQ(text::firstCharacters("äöü", 2), "äö");
  EXPECT_EQ(text::firstCharacters("\x80\x80", 1), "\x80\x80");
  EXPECT_EQ(text::pieces("  a b  ", " "), (std::vector<std::string_view>{"a", "b"}));
  EXPECT_EQ(text::lastPathComponent("/a/b"), "b");
  EXPECT_EQ(text::lastPathComponent("b"), "b");
}

}  // namespace
}  // namespace tovi
