#include "observe/BackgroundWork.h"

#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

using Audio = std::map<Pid, std::string>;

class BackgroundScan : public testing::Test {
 protected:
  MemoryLaptop laptop_;

  Pid run(const std::string& path, Pid parent = 1) { return laptop_.processes().add({.parent = parent, .path = path}); }

  BackgroundWork::Found scan() { return BackgroundWork::scan(laptop_.machine(), laptop_.processes().table()); }

  void assertion(AssertionRecord record) {
    laptop_.edit([&](LaptopReport& report) { report.assertions.push_back(std::move(record)); });
  }

  static AssertionRecord plays(Pid pid, std::optional<Pid> onBehalfOf = std::nullopt) {
    return {pid, {}, {}, {}, {}, {}, onBehalfOf, {"cpu", "audio-out-42"}};
  }
};

TEST_F(BackgroundScan, GathersDevicesWithAllBelowButNotTheServices) {
  const Pid first = run("/Library/Developer/launchd_sim");
  const Pid app = run("/Users/anna/MyApp.app/MyApp", first);
  const Pid preview = run("/usr/libexec/previewsd", app);
  const Pid nested = run("/usr/bin/deep", preview);
  const Pid second = run("/Library/Developer/launchd_sim");
  run("/Library/X/CoreSimulatorService.xpc/Contents/MacOS/CoreSimulatorService", second);
  run("/Library/com.apple.CoreSimulator.Host/host", first);
  const Pid metal = run("/System/SimMetalHost");
  const Pid front = run("/Applications/Xcode.app/X/Simulator.app/Contents/MacOS/Simulator");
  run("/Applications/Simulator.app/Contents/MacOS/Simulator Helper");
  const auto found = scan();
  EXPECT_EQ(found.simulatorDevices, 2);
  EXPECT_EQ(std::set<Pid>(found.simulators.begin(), found.simulators.end()),
            (std::set<Pid>{first, app, preview, nested, second, metal, front}));
  EXPECT_TRUE(found.previews.empty()) << "the one inside a simulator goes with it";
}

TEST_F(BackgroundScan, AProcessWithoutAPathIsNeverFoundAndHidesWhatItStarted) {
  const Pid root = run("/Library/Developer/launchd_sim");
  const Pid hidden = run("", root);
  run("/usr/bin/below", hidden);
  EXPECT_EQ(scan().simulators, std::vector<Pid>{root});
}

TEST_F(BackgroundScan, NamesArePathsEndsNotParts) {
  const std::tuple<const char*, bool, bool, bool> cases[] = {
      // path, tests running, agent uses the bridge, a preview
      {"/usr/bin/xcodebuild", true, false, false},
      {"/Users/anna/MyAppTests-Runner", true, false, false},
      {"/Users/anna/xctest/server", false, false, false},
      {"/Applications/Xcode.app/Contents/Developer/usr/bin/mcpbridge", false, true, false},
      {"/usr/bin/mcpbridge", false, false, false},
      {"/System/XCPreviewAgent", false, false, true},
      {"/System/XCPreviewAgent2", false, false, false},
  };
  for (const auto& [path, tests, bridge, preview] : cases) {
    const Pid pid = run(path);
    const auto found = scan();
    EXPECT_EQ(found.testsRunning, tests) << path;
    EXPECT_EQ(found.agentUsesXcode, bridge) << path;
    EXPECT_EQ(!found.previews.empty(), preview) << path;
    laptop_.processes().exit(pid);
  }
}

TEST_F(BackgroundScan, NamesWhoeverTheSpeakersAreHeldFor) {
  const Pid music = run("/Applications/Music.app/Contents/MacOS/Music");
  const Pid daemon = run("/usr/sbin/coreaudiod");
  assertion(plays(daemon, music));
  assertion(plays(daemon));  // for itself: nobody's music
  assertion(plays(1));
  assertion(plays(laptop_.processes().self()));
  assertion(plays(99'999));
  assertion({88'888, {}, {}, {}, "com.apple.audio.Built-in.context.preventuseridlesleep", {}, {}, {}});
  AssertionRecord recording = plays(77'777);
  recording.resourcesUsed = {"audio-in", "x audio-out"};
  assertion(recording);
  EXPECT_EQ(scan().audio, (Audio{{music, "Music"}, {99'999, "pid 99999"}, {88'888, "pid 88888"}}));
}

}  // namespace
}  // namespace tovi
