// Wordings and small parsers that every surface shares.

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Dates.h"
#include "core/Field.h"
#include "core/Hold.h"
#include "core/Json.h"
#include "core/PanelFormat.h"
#include "core/Text.h"

namespace tovi {
namespace {

TEST(PanelFormat, SpansReadTheSameEverywhere) {
  const std::pair<double, const char*> cases[] = {
      {-5, "0 min"},       {59, "0 min"},         {60, "1 min"},   {3599, "59 min"}, {3600, "1 h"},
      {3660, "1 h 1 min"}, {35940, "9 h 59 min"}, {36060, "10 h"}, {37440, "10 h"},  {std::nan(""), "0 min"},
  };
  for (const auto& [seconds, words] : cases) {
    EXPECT_EQ(PanelFormat::minutes(seconds), words) << seconds;
  }
  EXPECT_FALSE(PanelFormat::minutes(HUGE_VAL).empty());
}

TEST(PanelFormat, DurationsTurnToHoursAtNinetyMinutes) {
  EXPECT_EQ(PanelFormat::hm(61.0 / 60), "1 h 1 min");  // a sum that falls just short in binary
  EXPECT_EQ(PanelFormat::duration(0.75), "0 min");
  EXPECT_EQ(PanelFormat::duration(89.9), "89 min");
  EXPECT_EQ(PanelFormat::duration(90), "1.5 hours");
  EXPECT_EQ(PanelFormat::duration(20000), "333.3 hours");
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
  hold.ownerStart = 1767599998000000ULL;
  auto value = hold.toJson();
  EXPECT_EQ(Hold::fromJson(value), hold);
  for (const char* key : {"until", "pid", "owner", "pidStart", "ownerStart", "id", "reason", "created"}) {
    auto broken = value;
    broken[key] = nlohmann::json::array();
    EXPECT_EQ(Hold::fromJson(broken), std::nullopt) << key;
  }
  value["pid"] = 4294967296;
  EXPECT_EQ(Hold::fromJson(value), std::nullopt);
  EXPECT_EQ(Hold::fromJson(nlohmann::json::array()), std::nullopt);
}

TEST(Json, WrongTypesAreMissingAndNothingThrows) {
  const auto value = json::parse(R"({"n": 5.0, "big": 18446744073709551615, "half": 0.5, "t": "x", "b": true})");
  ASSERT_TRUE(value);
  EXPECT_EQ(json::integerAt(*value, "n"), 5);
  EXPECT_EQ(json::integerAt(*value, "big"), std::nullopt);
  EXPECT_EQ(json::integerAt(*value, "half"), std::nullopt);
  EXPECT_EQ(json::integerAt(*value, "b"), std::nullopt);
  EXPECT_EQ(json::numberAt(*value, "t"), std::nullopt);
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
  EXPECT_EQ(text::firstCharacters("\x80\x80", 1), "\x80\x80");
  EXPECT_EQ(text::pieces("  a b  ", " "), (std::vector<std::string_view>{"a", "b"}));
  EXPECT_EQ(text::lastPathComponent("b"), "b");
}

}  // namespace
}  // namespace tovi
