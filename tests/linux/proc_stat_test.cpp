#include "platform/linux/ProcStat.h"

#include <gtest/gtest.h>

#include <string>

namespace tovi {
namespace {

std::string line(const std::string& name, const std::string& start = "4321", const std::string& flags = "4194304") {
  return "77 (" + name + ") S 12 77 77 0 -1 " + flags + " 1 2 3 4 150 25 6 7 20 0 3 0 " + start + " 1000 200 0\n";
}

TEST(ProcStat, NoNameCanShiftTheFields) {
  for (const std::string name : {"foo) Z ", ") R 1 1 1", "a\nb", "", "((", "))", " ", "\xff\xfe", "x) S 1 (y"}) {
    const auto stat = parseProcStat(line(name));
    ASSERT_TRUE(stat) << name;
    EXPECT_EQ(*stat, (ProcStat{12, 'S', false, 3, 150, 25, 4321})) << name;
  }
  EXPECT_TRUE(parseProcStat(line("kworker/0:1", "9", "69238880"))->kernelThread);
}

TEST(ProcStat, WhatIsNoSuchLineIsAbsent) {
  // Cut off at the blank after the start time it is incomplete: the number may go on.
  const std::string good = line("x");
  const std::size_t complete = good.find("4321") + 5;
  EXPECT_FALSE(parseProcStat(std::string_view{good}.substr(0, complete - 1)));
  EXPECT_TRUE(parseProcStat(std::string_view{good}.substr(0, complete)));
  for (const char* start : {"-1", "12a", "99999999999999999999999", ""}) {
    EXPECT_FALSE(parseProcStat(line("x", start))) << start;
  }
}

}  // namespace
}  // namespace tovi
