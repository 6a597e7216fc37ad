#include "observe/EnergySampler.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "observe/AppClasses.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

class EnergySamplerTest : public ::testing::Test {
 protected:
  MemoryLaptop laptop;
  EnergySampler sampler{laptop.machine()};

  Pid run(const std::string& path, double watts = 0, double cores = 0) {
    return laptop.processes().add({.path = path, .watts = watts, .cores = cores});
  }
  std::vector<AppUsage> sampleAfter(double seconds) {
    laptop.advance(seconds);
    return sampler.sample();
  }
  static const AppUsage* find(const std::vector<AppUsage>& apps, std::string_view id) {
    const auto at = std::ranges::find(apps, id, &AppUsage::id);
    return at == apps.end() ? nullptr : &*at;
  }
};

TEST_F(EnergySamplerTest, ShowsARateFromNoTime) {
  run("/usr/bin/make", 2);
  EXPECT_TRUE(sampler.sample().empty());
  EXPECT_TRUE(sampleAfter(0.19).empty());
  EXPECT_FALSE(sampleAfter(0.21).empty());
  laptop.stepClock(-100);
  const auto apps = sampleAfter(10);
  ASSERT_NE(find(apps, "make"), nullptr);
  EXPECT_NEAR(find(apps, "make")->watts, 2, 1e-6);
}

TEST_F(EnergySamplerTest, BelievesABrokenCounter) {
  struct Case {
    ProcessUsage before, after;
    bool counts;
  };
  constexpr std::uint64_t kSecond = 1'000'000'000;
  const std::vector<Case> cases{
      {{0, 0}, {4'999 * kSecond, 0}, true},   // 499.9 W
      {{0, 0}, {5'000 * kSecond, 0}, false},  // 500 W
      {{5 * kSecond, 5 * kSecond}, {4 * kSecond, 6 * kSecond}, false},
      {{5 * kSecond, 5 * kSecond}, {6 * kSecond, 4 * kSecond}, false},
  };
  for (const Case& one : cases) {
    EnergySampler fresh(laptop.machine());
    const Pid pid = run("/usr/bin/make");
    laptop.processes().setCounters(pid, one.before);
    fresh.sample();
    laptop.advance(10);
    laptop.processes().setCounters(pid, one.after);
    EXPECT_EQ(find(fresh.sample(), "make") != nullptr, one.counts) << one.after.energyNanojoules;

    // What was left out is the baseline of the next sample all the same.
    laptop.advance(10);
    laptop.processes().setCounters(pid, {one.after.energyNanojoules + 10 * kSecond, one.after.cpuNanoseconds});
    const auto apps = fresh.sample();
    ASSERT_NE(find(apps, "make"), nullptr);
    EXPECT_NEAR(find(apps, "make")->watts, 1, 1e-6);
    laptop.processes().exit(pid);
  }
}

TEST_F(EnergySamplerTest, CountsWhatANewProcessUsedBeforeItWasSeen) {
  sampler.sample();
  const Pid pid = run("/usr/bin/make");
  laptop.processes().setCounters(pid, {50'000'000'000, 0});
  EXPECT_EQ(find(sampleAfter(10), "make"), nullptr);
  EXPECT_NE(find(sampleAfter(10), "make"), nullptr);
}

TEST_F(EnergySamplerTest, SplitsOneApplicationOrMixesTwo) {
  const std::string bundle = "/Applications/Browser.app";
  laptop.files().put(bundle + "/Contents/Info.plist",
                     "<plist><dict><key>CFBundleName</key><string>No</string><key>CFBundleDisplayName</key><string>Web"
                     "</string><key>CFBundleIdentifier</key><string>org.web</string></dict></plist>");
  const Pid main = run(bundle + "/Contents/MacOS/Browser", 1, 0.25);
  const Pid helper = run(bundle + "/Contents/Frameworks/Tab.app/Contents/MacOS/Tab", 2, 0.5);
  run("/usr/bin/python3", 5, 1);
  run("/opt/python3", 1, 1);
  run("/usr/libexec/indexer", 4);
  laptop.processes().add({.path = "/usr/bin/other", .watts = 100, .mine = false});
  sampler.sample();
  const auto apps = sampleAfter(10);

  ASSERT_GE(apps.size(), 3u);
  EXPECT_EQ(apps[0].id, "python3");  // most watts first
  EXPECT_NEAR(apps[0].watts, 6, 1e-6);
  EXPECT_EQ(apps[1].id, "indexer");
  EXPECT_EQ(apps[2].id, bundle);
  EXPECT_EQ(apps[2].name, "Web");
  EXPECT_EQ(apps[2].bundleID, "org.web");
  EXPECT_NEAR(apps[2].watts, 3, 1e-6);
  EXPECT_NEAR(apps[2].cores, 0.75, 1e-6);
  EXPECT_EQ(apps[2].pids, (std::vector<Pid>{main, helper}));
  EXPECT_EQ(find(apps, "other"), nullptr);
  EXPECT_TRUE(apps[1].system);
  EXPECT_FALSE(apps[0].system || apps[2].system);
}

TEST(AppUsageTest, TakesAnApplicationForThePartOfTheSystem) {
  const std::vector<std::pair<std::string, bool>> cases{
      {"/System/Library/x", true},
      {"/usr/libexec/foo", true},
      {"/usr/bin/python3", false},
      {"/opt/System/x", false},
      {"/System/Cryptexes/App/System/Applications/Safari.app/Contents/MacOS/Safari", false},
  };
  for (const auto& [path, system] : cases) EXPECT_EQ(AppUsage::isSystemPath(path), system) << path;
  EXPECT_EQ(bundlePathOf("/A/One.app/Two.app/x"), "/A/One.app");
  for (const char* none : {"/A/One.app", "/A/One.application/x", ""}) EXPECT_EQ(bundlePathOf(none), "") << none;
}

TEST(AppClassesTest, FreezesWhatAnAgentUsesOrAPersonListensTo) {
  EXPECT_TRUE(AppClasses::isMediaOrCall("us.zoom.xos"));
  EXPECT_FALSE(AppClasses::isMediaOrCall("com.google.Chrome"));
  EXPECT_TRUE(AppClasses::isAgentService("com.google.Chrome"));
  EXPECT_FALSE(AppClasses::isAgentService(""));
  EXPECT_TRUE(AppClasses::looksLikeAgentService("my lm studio beta"));
  for (const char* name : {"Notes", ""}) EXPECT_FALSE(AppClasses::looksLikeAgentService(name)) << name;
}

}  // namespace
}  // namespace tovi
