#include "commands/Arguments.h"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

namespace tovi {
namespace {

using Json = nlohmann::json;

TEST(Arguments, NumberReadsOnlyWhatIsOneAndCutsItToTheMost) {
  const struct {
    Json value;
    std::optional<double> expected;
  } cases[] = {
      {2.5, 2.5},   {"1.5", 1.5}, {0, 0},       {101, 100},     {"4294967296", 100}, {-1, {}},
      {"-0.5", {}}, {"", {}},     {"abc", {}},  {" 5", {}},     {"5 min", {}},       {"inf", {}},
      {"nan", {}},  {true, {}},   {Json(), {}}, {INFINITY, {}},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(Arguments(Json{{"n", value}}).number("n", 100), expected) << value;
  }
}

TEST(Arguments, FlagTakesTheUsualWordsAndNothingElse) {
  const struct {
    Json value;
    std::optional<bool> expected;
  } cases[] = {
      {true, true}, {"ON", true}, {"True", true}, {"yes", true}, {"1", true}, {"off", false}, {"No", false},
      {0, false},   {-3, true},   {0.5, true},    {"", {}},      {"2", {}},   {Json(), {}},   {Json::object(), {}},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(Arguments(Json{{"f", value}}).flag("f"), expected) << value;
  }
}

TEST(Arguments, NotAnObjectCountsAsEmpty) {
  for (const Json& values : {Json::array({"text"}), Json("text"), Json()}) {
    EXPECT_FALSE(Arguments(values).has("text"));
    EXPECT_FALSE(Arguments(values).text("text"));
  }
}

}  // namespace
}  // namespace tovi
