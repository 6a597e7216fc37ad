#include <gtest/gtest.h>

#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

std::string plist(const std::string& inside) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>" + inside + "</dict></plist>";
}

class LaptopApplications : public testing::Test {
 protected:
  MemoryLaptop laptop{[] {
    MemoryLaptop::Options options;
    options.executable = "/opt/Tovi";
    return options;
  }()};
  Workspace& workspace = laptop.machine().workspace;

  Pid add(const std::string& path) {
    MemoryProcess process;
    process.path = path;
    return laptop.processes().add(process);
  }
};

TEST_F(LaptopApplications, AProcessInABundleIsAnApplication) {
  laptop.files().put("/Apps/A.app/Contents/Info.plist",
                     plist("<key>CFBundleName</key><string>Aye</string><key>CFBundleIdentifier</key>"
                           "<string>com.a</string><key>X</key><dict><key>LSUIElement</key><true/></dict>"));
  laptop.files().put("/Apps/A.app/Contents/H.app/Contents/Info.plist",
                     plist("<key>LSUIElement</key><string>1</string>"));
  const Pid app = add("/Apps/A.app/Contents/MacOS/A");
  const Pid helper = add("/Apps/A.app/Contents/H.app/Contents/MacOS/H");
  const Pid bare = add("/Apps/Bare.app/run");
  const Pid tool = add("/usr/bin/make");
  EXPECT_EQ(workspace.runningApplications().size(), 3u);

  const auto found = workspace.application(app).value();
  EXPECT_EQ(found.name, "Aye");
  EXPECT_EQ(found.bundleIdentifier, "com.a");
  EXPECT_EQ(found.path, "/Apps/A.app");
  EXPECT_TRUE(found.regular) << "a key further in isn't the bundle's";
  EXPECT_EQ(workspace.application(helper)->path, "/Apps/A.app/Contents/H.app") << "a helper is a bundle of its own";
  EXPECT_FALSE(workspace.application(helper)->regular);
  EXPECT_EQ(workspace.application(bare)->name, "Bare");
  EXPECT_TRUE(workspace.application(bare)->regular);
  EXPECT_FALSE(workspace.application(tool));
  EXPECT_FALSE(workspace.bundle("/Apps/Bare.app")) << "nothing describes it";
  EXPECT_EQ(workspace.displayName("/Apps/Bare.app"), "Bare");
  EXPECT_EQ(workspace.pathForBundleIdentifier("com.a"), "/Apps/A.app");
}

TEST_F(LaptopApplications, TheReportHasTheLastWord) {
  const Pid listed = add("/Apps/A.app/Contents/MacOS/A");
  const Pid second = add("/Apps/A.app/Contents/MacOS/A");
  laptop.edit([&](LaptopReport& report) {
    report.applications = {{listed, "Listed", "com.listed", "/Elsewhere.app", false},
                           {0, "Described", "com.a", "/Apps/A.app", false}};
  });
  EXPECT_EQ(workspace.application(listed)->name, "Listed");
  EXPECT_EQ(workspace.application(second)->name, "Described");
  EXPECT_FALSE(workspace.application(second)->regular);
  EXPECT_EQ(workspace.runningApplications().size(), 2u) << "a description alone doesn't run";
  EXPECT_EQ(workspace.bundle("/Apps/A.app")->identifier, "com.a");
  EXPECT_EQ(workspace.pathForBundleIdentifier("com.listed"), "/Elsewhere.app");
  EXPECT_FALSE(workspace.pathForBundleIdentifier("com.none"));
}

TEST_F(LaptopApplications, SoundsAreKnownByName) {
  EXPECT_TRUE(laptop.machine().notices.play("Glass"));
  EXPECT_FALSE(laptop.machine().notices.play("glass"));
  laptop.machine().notices.notify("Title", "Body");
  EXPECT_EQ(laptop.notices(), (std::vector<LaptopNotice>{{LaptopNotice::Kind::sound, "", "", "Glass"},
                                                         {LaptopNotice::Kind::notification, "Title", "Body", ""}}));
}

}  // namespace
}  // namespace tovi
