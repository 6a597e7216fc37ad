#include "commands/Arguments.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace tovi {
namespace {

using Json = nlohmann::json;

TEST(Arguments, NumberReadsOnlyWhatIsOneAndCutsItToTheMost) {
  const struct {
    Json value;
    std::optional<double> expected;
  } cases[] = {
      {5, 5},
      {2.5, 2.5},
      {"7", 7},
      {"1.5", 1.5},
      {0, 0},
      {100, 100},
      {101, 100},
      {"4294967296", 100},
      {-1, {}},
      {"-0.5", {}},
      {"", {}},
      {"abc", {}},
      {" 5", {}},
      {"5 min", {}},
      {"inf", {}},
      {"nan", {}},
      {std::numeric_limits<double>::infinity(), {}},
      {true, {}},
      {nullptr, {}},
      {Json::array({5}), {}},
  };
  for (const auto& row : cases) {
    const Json values{{"n", row.value}};
    EXPECT_EQ(Arguments(values).number("n", 100), row.expected) << row.value;
  }
}

TEST(Arguments, FlagTakesTheUsualWordsAndNothingElse) {
  const struct {
    Json value;
    std::optional<bool> expected;
  } cases[] = {
      {true, true},  {false, false}, {"on", true},   {"ON", true},  {"True", true},
      {"yes", true}, {"1", true},    {"off", false}, {"No", false}, {"false", false},
      {"0", false},  {1, true},      {0, false},     {-3, true},    {0.5, true},
      {"", {}},      {"2", {}},      {"maybe", {}},  {nullptr, {}}, {Json::object(), {}},
  };
  for (const auto& row : cases) {
    const Json values{{"f", row.value}};
    EXPECT_EQ(Arguments(values).flag("f"), row.expected) << row.value;
  }
}

TEST(Arguments, NotAnObjectCountsAsEmpty) {
  for (const Json& values : {Json::array({"text"}), Json("text"), Json(5), Json()}) {
    const Arguments args(values);
    EXPECT_FALSE(args.has("text"));
    EXPECT_FALSE(args.text("text"));
    EXPECT_FALSE(args.number("text", 9));
    EXPECT_FALSE(args.flag("text"));
  }
}

}  // namespace
}  // namespace tovi
