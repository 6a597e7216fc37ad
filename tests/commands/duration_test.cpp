#include <gtest/gtest.h>

#include "commands/CLI.h"

namespace tovi {
namespace {

TEST(Duration, IsReadAsPeopleWriteIt) {
  const struct {
    const char* text;
    std::optional<double> minutes;
  } cases[] = {
      {"90", 90},       {"2h", 120},     {"1h30m", 90}, {"1h30", 90}, {"1.5h", 90},   {"45s", 0.75}, {"1H30M", 90},
      {"99999", 10080}, {"500h", 10080}, {"0", {}},     {"-5", {}},   {"30d", {}},    {"", {}},      {"h", {}},
      {"1hm", {}},      {"1 h", {}},     {"inf", {}},   {"nan", {}},  {"1.2.3h", {}}, {"1h-5m", {}},
  };
  for (const auto& row : cases) EXPECT_EQ(CLI::parseDuration(row.text), row.minutes) << row.text;
}

TEST(Words, RoleIsChosenByNameOrFirstArgument) {
  for (const auto& [arguments, tool, words] :
       std::vector<std::tuple<CLI::Words, bool, CLI::Words>>{{{"tovi", "status", "--json"}, true, {"status", "--json"}},
                                                             {{"/opt/Tovi", "cli", "watchdog"}, true, {"watchdog"}},
                                                             {{"/opt/Tovi", "status"}, false, {"status"}},
                                                             {{"/opt/tovi/Tovi"}, false, {}},
                                                             {CLI::Words{}, false, {}}}) {
    EXPECT_EQ(CLI::shouldRun(arguments), tool) << testing::PrintToString(arguments);
    EXPECT_EQ(CLI::wordsOf(arguments), words) << testing::PrintToString(arguments);
  }
}

}  // namespace
}  // namespace tovi
