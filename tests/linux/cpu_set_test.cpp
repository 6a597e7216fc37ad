#include "platform/linux/CpuSet.h"

#include "linux/Helpers.h"

namespace tovi {
namespace {

CpuSet set(std::string_view list) { return CpuSet::parse(list).value(); }

TEST(CpuSet, TheKernelsListsAreRead) {
  const CpuSet some = set("0-2,8,10-11\n");
  for (int i = 0; i < 16; ++i) EXPECT_EQ(some.has(i), i <= 2 || i == 8 || i == 10 || i == 11) << i;
  for (const char* bad : {"a", "1-", "-1", "3-1", "0,", "0-2000", "1024", "0 1"}) {
    EXPECT_FALSE(CpuSet::parse(bad)) << bad;
  }
}

TEST(CpuSet, SlowedThreadsGoToTheEfficiencyCores) {
  struct Case {
    const char* what;
    std::vector<std::pair<const char*, const char*>> files;
    const char* full;
    const char* slow;
  };
  const std::vector<std::pair<const char*, const char*>> bigLittle = {{"system/cpu/cpu0/cpu_capacity", "1024\n"},
                                                                      {"system/cpu/cpu1/cpu_capacity", "380\n"},
                                                                      {"system/cpu/cpu2/cpu_capacity", "380\n"},
                                                                      {"system/cpu/cpu3/cpu_capacity", "1024\n"}};
  for (const Case& c : {
           Case{"nothing told", {}, "0-3", "3"},
           Case{"one processor", {}, "0", "0"},
           Case{"capacities differ", bigLittle, "0-3", "1-2"},
           Case{"capacities alike", bigLittle, "1-2", "2"},
           Case{"a container without small cores", bigLittle, "0,3", "3"},
           Case{"a container with one small core", bigLittle, "0,2", "2"},
           Case{"one capacity untold", {{"system/cpu/cpu0/cpu_capacity", "100"}}, "0-1", "1"},
           Case{"small cores listed", {{"cpu_atom/cpus", "4-7\n"}}, "0-7", "4-7"},
           Case{"no small core for us", {{"cpu_atom/cpus", "4-7\n"}}, "0-3", "3"},
           Case{"only small cores for us", {{"cpu_atom/cpus", "4-7\n"}}, "4-7", "7"},
           Case{"a broken list", {{"cpu_atom/cpus", "all\n"}}, "0-1", "1"},
       }) {
    const TemporaryFolder devices;
    for (const auto& [name, text] : c.files) put(devices / name, text);
    EXPECT_EQ(slowCpuSet(set(c.full), devices.path()), set(c.slow)) << c.what;
  }
}

TEST(CpuSet, TheFullSetDoesNotShrinkWithOurOwnConfinement) {
  const CpuSet full = fullCpuSet();
  ASSERT_GE(full.count(), 1);
  const CpuSet before = CpuSet::ofThread(0).value();
  CpuSet one;
  one.add(full.last());
  ASSERT_TRUE(one.applyTo(0));
  EXPECT_EQ(fullCpuSet(), full);
  EXPECT_EQ(CpuSet::ofThread(0).value(), one);
  before.applyTo(0);
}

}  // namespace
}  // namespace tovi
