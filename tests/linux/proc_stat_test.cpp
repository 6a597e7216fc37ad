#include "platform/linux/ProcStat.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tovi {
namespace {

std::string line(const std::string& name, const std::string& start = "4321", const std::string& flags = "4194304") {
  return "77 (" + name + ") S 12 77 77 0 -1 " + flags + " 1 2 3 4 150 25 6 7 20 0 3 0 " + start + " 1000 200 0\n";
}

TEST(ProcStat, NoNameCanShiftTheFields) {
  for (const std::string name :
       {"bash", "foo) Z ", ") R 1 1 1", "a\nb", "", "((", "))", " ", "\xff\xfe", "x) S 1 (y", "7 (q"}) {
    const auto stat = parseProcStat(line(name));
    ASSERT_TRUE(stat) << name;
    EXPECT_EQ(*stat, (ProcStat{12, 'S', false, 3, 150, 25, 4321})) << name;
  }
}

TEST(ProcStat, AKernelThreadIsKnownByItsFlag) {
  EXPECT_TRUE(parseProcStat(line("kworker/0:1", "9", "69238880"))->kernelThread);
  EXPECT_FALSE(parseProcStat(line("init", "9", "4194560"))->kernelThread);
}

TEST(ProcStat, WhatIsNoSuchLineIsAbsent) {
  const std::string good = line("x");
  // Cut anywhere before the blank after the start time it is incomplete.
  const std::size_t complete = good.find("4321") + 5;
  for (std::size_t size = 0; size < complete; ++size) {
    EXPECT_FALSE(parseProcStat(std::string_view{good}.substr(0, size))) << size;
  }
  EXPECT_TRUE(parseProcStat(std::string_view{good}.substr(0, complete)));
  for (const std::string& bad : {std::string{}, std::string{")("}, std::string{"77 (x)"}, std::string{"77 (x) S"},
                                 line("x", "-1"), line("x", "12a"), line("x", "99999999999999999999999"), line("x", ""),
                                 std::string{"77 (x) S -5 7 7 0 -1 0 1 2 3 4 5 6 7 8 9 0 3 0 12 1\n"}}) {
    EXPECT_FALSE(parseProcStat(bad)) << bad;
  }
}

TEST(ProcStat, GarbageIsSurvived) {
  std::mt19937 random{1};
  const std::string good = line("a) (b");
  for (int round = 0; round < 20000; ++round) {
    std::string text = good.substr(0, random() % (good.size() + 1));
    for (int change = 0; change < 4 && !text.empty(); ++change) {
      text[random() % text.size()] = static_cast<char>(random());
    }
    // A copy of the exact size, so that one byte too far is noticed.
    const std::vector<char> exact(text.begin(), text.end());
    (void)parseProcStat({exact.data(), exact.size()});
  }
}

}  // namespace
}  // namespace tovi
