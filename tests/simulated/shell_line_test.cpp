#include "platform/simulated/ShellLine.h"

#include <gtest/gtest.h>

namespace tovi {
namespace {

using Commands = std::vector<std::vector<std::string>>;

TEST(ShellLine, TakesQuotesOffAsAShellWould) {
  const struct {
    const char* text;
    Commands commands;
  } cases[] = {
      {"a  b && c\t'd e'", {{"a", "b"}, {"c", "d e"}}},
      {R"(ln '/it'\''s here/x' y)", {{"ln", "/it's here/x", "y"}}},
      {R"(x "a \"b\" \\ \c" '')", {{"x", "a \"b\" \\ \\c", ""}}},
      {R"(x a\ b '&& $(c)')", {{"x", "a b", "&& $(c)"}}},
  };
  for (const auto& [text, commands] : cases) EXPECT_EQ(splitShellLine(text), commands) << text;
}

TEST(ShellLine, RefusesWhatAShellWouldDoMoreWith) {
  for (const char* text : {"", "a &&", "a && && b", "a & b", "a; b", "a | b", "a > b", "a `b`", "a \"$b\"", "a *",
                           "a\nb", "'open", "a \\"}) {
    EXPECT_FALSE(splitShellLine(text)) << text;
  }
}

}  // namespace
}  // namespace tovi
