#include <gtest/gtest.h>

#include "commands/CLI.h"

namespace tovi {
namespace {

TEST(Duration, IsReadAsPeopleWriteIt) {
  const struct {
    const char* text;
    std::optional<double> minutes;
  } cases[] = {
      {"90", 90},    {"90m", 90},  {"2h", 120},    {"1h30m", 90},  {"1h30", 90},     {"1.5h", 90},    {"45s", 0.75},
      {"1H30M", 90}, {"0.5", 0.5}, {"1m30s", 1.5}, {"30m1h", 90},  {"99999", 10080}, {"500h", 10080}, {"0", {}},
      {"0m", {}},    {"-5", {}},   {"30d", {}},    {"", {}},       {"h", {}},        {"1hm", {}},     {"1 h", {}},
      {"soon", {}},  {"inf", {}},  {"nan", {}},    {"1.2.3h", {}}, {"+5", 5},        {"1h-5m", {}},
  };
  for (const auto& row : cases) EXPECT_EQ(CLI::parseDuration(row.text), row.minutes) << row.text;
}

TEST(Words, RoleIsChosenByNameOrFirstArgument) {
  const struct {
    CLI::Words arguments;
    bool tool;
    CLI::Words words;
  } cases[] = {
      {{"/usr/local/bin/tovi"}, true, {}}, {{"tovi", "status", "--json"}, true, {"status", "--json"}},
      {{"/opt/Tovi", "cli"}, true, {}},    {{"/opt/Tovi", "cli", "watchdog"}, true, {"watchdog"}},
      {{"/opt/Tovi"}, false, {}},          {{"/opt/Tovi", "status"}, false, {"status"}},
      {{"/opt/tovi/Tovi"}, false, {}},     {{}, false, {}},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(CLI::shouldRun(row.arguments), row.tool) << testing::PrintToString(row.arguments);
    EXPECT_EQ(CLI::wordsOf(row.arguments), row.words) << testing::PrintToString(row.arguments);
  }
}

TEST(Words, FlagIsTheWordAfterTheFirstOfItsName) {
  EXPECT_EQ(CLI::flag("--for", {"on", "--for", "2h", "--for", "3h"}), "2h");
  EXPECT_EQ(CLI::flag("--for", {"on", "--for"}), std::nullopt);
  EXPECT_EQ(CLI::flag("--for", {"on"}), std::nullopt);
}

}  // namespace
}  // namespace tovi
