#include "platform/linux/LinuxWorkspace.h"

#include "linux/Helpers.h"
#include "platform/linux/LinuxFiles.h"

namespace tovi {
namespace {

std::string plist(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"x\">\n"
         "<plist version=\"1.0\"><dict>" +
         body + "</dict></plist>";
}

class RealWorkspace : public ::testing::Test {
 protected:
  std::string app(const std::string& name, const std::string& text) {
    put(folder / (name + "/Contents/Info.plist"), text);
    return folder / name;
  }
  TemporaryFolder folder;
  LinuxFiles files;
  LinuxWorkspace workspace{files, {folder / "missing", folder.path()}};
};

TEST_F(RealWorkspace, ABundlesFactsComeFromItsPropertyList) {
  const std::string path = app("Music Box.app", plist("<key>CFBundleName</key><string>Box</string>\n"
                                                      "<key>Nested</key><dict><key>CFBundleIdentifier</key>"
                                                      "<string>wrong</string></dict>"
                                                      "<key>CFBundleDisplayName</key> <string>Music &amp; Box</string>"
                                                      "<key>CFBundleIdentifier</key><string>org.box</string>"));
  for (const std::string& spelled : {path, path + "/"}) {
    const auto facts = workspace.bundle(spelled).value();
    EXPECT_EQ(facts.displayName, "Music & Box");
    EXPECT_EQ(facts.name, "Box");
    EXPECT_EQ(facts.identifier, "org.box");
  }
  EXPECT_EQ(workspace.pathForBundleIdentifier("org.box"), path);
  EXPECT_EQ(workspace.pathForBundleIdentifier("wrong"), std::nullopt);
  for (const char* broken : {"", "bplist00\xd1\x01", "<plist><array/></plist>", "<plist><dict>"}) {
    EXPECT_FALSE(workspace.bundle(app("Broken.app", broken))) << broken;
  }
  EXPECT_FALSE(workspace.bundle(app("Folder", plist("")))) << "a folder that isn't called an application";
  const std::string odd = app("Odd.app", plist("<key>CFBundleName</key><integer>4</integer>"));
  EXPECT_EQ(workspace.bundle(odd)->name, std::nullopt);
  EXPECT_EQ(workspace.displayName(odd), "Odd.app");
  EXPECT_EQ(workspace.displayName("/usr/bin/tool"), "tool");
}

}  // namespace
}  // namespace tovi
