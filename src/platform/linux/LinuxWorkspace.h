// Applications on Linux: a bundle is a folder ending in ".app" with "Contents/Info.plist" in XML.
#pragma once

#include <string>
#include <vector>

#include "platform/Workspace.h"

namespace tovi {

class Files;

// There is no list of running applications on the bare machine: it is empty.
class LinuxWorkspace : public Workspace {
 public:
  // Bundles are looked up in `applicationFolders`, in that order; see standardApplicationFolders().
  LinuxWorkspace(Files& files, std::vector<std::string> applicationFolders);

  std::vector<RunningApplication> runningApplications() override { return {}; }
  std::optional<RunningApplication> application(Pid) override { return {}; }
  std::optional<BundleInfo> bundle(const std::string& path) override;
  std::optional<std::string> pathForBundleIdentifier(const std::string& identifier) override;
  // The bundle's display name, else its name, else the path's last component.
  std::string displayName(const std::string& path) override;
  std::string applicationsFolder() override { return "/Applications/"; }

 private:
  Files& files_;
  std::vector<std::string> applicationFolders_;
};

// "/Applications" and the one in the home folder.
std::vector<std::string> standardApplicationFolders(const std::string& home);

}  // namespace tovi
