#include <gtest/gtest.h>

#include "observe/AgentWatcher.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

constexpr const char* kExport = "/Applications/Export.app/Contents/MacOS/Export";

AssertionRecord assertion(Pid pid, const std::string& holder, const std::string& type, const std::string& name) {
  return {pid, holder, type, {}, name, {}, {}, {}};
}

class SleepRequestsTest : public ::testing::Test {
 protected:
  MemoryLaptop laptop;

  Pid run(const std::string& path) { return laptop.processes().add({.path = path}); }
  std::vector<SleepBlocker> requests(const std::vector<AssertionRecord>& assertions) {
    laptop.edit([&](LaptopReport& report) { report.assertions = assertions; });
    return AgentWatcher::sleepRequests(laptop.machine());
  }
};

TEST_F(SleepRequestsTest, TakesPlayersDaemonsAndHelpersForWorkOrMissesWork) {
  struct Case {
    std::string path, holder, type, name;
    bool counts;
  };
  const std::string system = "PreventUserIdleSystemSleep";
  const std::vector<Case> cases{
      {kExport, "Export", system, "Exporting", true},
      {kExport, "Export", "NoIdleSleepAssertion", "Exporting", true},
      {kExport, "Export", "PreventUserIdleDisplaySleep", "Exporting", false},
      {kExport, "Export", "", "Exporting", false},
      {kExport, "Export", system, "Playing AUDIO", false},
      {kExport, "Export", system, "recall-index", false},
      {kExport, "Export", system, "Blink Wake Lock", false},
      {kExport, "powerd", system, "Exporting", false},
      {"", "caffeinate", system, "make", true},
      {"/usr/bin/rsync", "rsync", system, "copy", false},
      {"", "Export", system, "Exporting", false},
      {"/System/Library/CoreServices/Finder.app/Contents/MacOS/Finder", "Finder", system, "Copy", false},
      {"/usr/lib/X.app/Contents/MacOS/X", "X", system, "Copy", false},
      {"/System/Applications/Notes.app/Contents/MacOS/Notes", "Notes", system, "Sync", true},
      {"/Applications/Software UPDATE.app/Contents/MacOS/x", "x", system, "install", false},
      {"/Applications/Foo Helper.app/Contents/MacOS/x", "x", system, "install", false},
      {"/Applications/SomeAgent.app/Contents/MacOS/x", "x", system, "install", false},
      {"/Applications/Agenda.app/Contents/MacOS/x", "x", system, "install", true},
      {"/home/anna/updates/Export.app/Contents/MacOS/x", "x", system, "install", true},
  };
  for (const Case& one : cases) {
    const auto found = requests({assertion(run(one.path), one.holder, one.type, one.name)});
    EXPECT_EQ(found.size(), one.counts ? 1u : 0u) << one.path << " " << one.type << " " << one.name;
  }
}

TEST_F(SleepRequestsTest, ReadsTheWrongFieldOfARequest) {
  const Pid app = run(kExport);
  const Pid daemon = run("/usr/libexec/daemon");

  auto full = assertion(daemon, "daemon", "PreventSystemSleep", "Exporting");
  full.type = "PreventUserIdleDisplaySleep";  // the true type is preferred
  full.onBehalfOf = app;
  full.startedAt = laptop.now() + -100.0;
  auto found = requests({full});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].pid, app);
  EXPECT_EQ(found[0].process, "Export");
  EXPECT_EQ(found[0].since, laptop.now() + -100.0);
  EXPECT_EQ(found[0].identity(), std::to_string(app) + "-Exporting");

  found = requests({{app, {}, {}, "NoIdleSleepAssertion", {}, {}, {}, {}}});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, "NoIdleSleepAssertion");
  EXPECT_TRUE(found[0].sinceUnknown);

  // The requester's name, as far as one is known.
  laptop.edit([&](LaptopReport& report) {
    report.applications = {{.pid = app, .name = "Film Export", .path = "/Applications/Export.app"}};
  });
  EXPECT_EQ(requests({assertion(app, "bin", "PreventSystemSleep", "x")}).at(0).process, "Film Export");
  EXPECT_EQ(requests({assertion(run(""), "caffeinate", "PreventSystemSleep", "x")}).at(0).process, "caffeinate");
}

}  // namespace
}  // namespace tovi
