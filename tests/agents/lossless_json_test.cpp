#include "agents/LosslessJson.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tovi {
namespace {

TEST(LosslessJson, TakesOnlyWhatComesBackTheSame) {
  for (const char* text : {R"({})", R"({"a":{"x":1},"b":{"x":2},"c":[{"x":1},{"x":2}]})", R"({"a":9007199254740993})",
                           R"({"a":18446744073709551615,"b":-9223372036854775808})",
                           R"({"a":0.10,"b":1e5,"c":-0.0,"d":100.0E-2,"e":0.00})", R"({"a":"\u00e9\/\u0000"})"}) {
    EXPECT_TRUE(lossless::parse(text)) << text;
  }
  for (const std::string text :
       {"", "[]", "{", "{} {}", "// c\n{}", R"({"a":1,})", R"({"a":[{"x":1,"x":2}]})", R"({"a":18446744073709551616})",
        R"({"a":0.12345678901234567890123})", R"({"a":1e999})", R"({"a":1e-999})", "{\"a\":\"\xFF\"}",
        R"({"a":"\ud800"})", "\xEF\xBB\xBF{}"}) {
    EXPECT_FALSE(lossless::parse(text)) << text;
  }
  EXPECT_FALSE(lossless::parse(std::string_view("{}\0 x", 5))) << "what follows would be lost";
  EXPECT_FALSE(lossless::parse(R"({"a":-0})")) << "would come back as 0";
  EXPECT_FALSE(lossless::parse(R"({"a":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}"));
}

TEST(LosslessJson, AnotherProgramsNumbersComeBackDigitForDigit) {
  for (const std::string number : {"7.289215", "6.334281234927436", "-0.0", "100.0", "5e-324"}) {
    const auto object = lossless::parse("{\"a\":" + number + "}");
    ASSERT_TRUE(object) << number;
    EXPECT_EQ(lossless::pretty(*object), "{\n  \"a\": " + number + "\n}\n");
  }
}

}  // namespace
}  // namespace tovi
