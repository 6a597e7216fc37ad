// Applications of the simulated laptop: those that its report lists, and every process that runs inside a bundle
// which the report doesn't list by pid.
#pragma once

#include <unordered_map>

#include "platform/Workspace.h"

namespace tovi {

class Files;
class LaptopStore;
class Processes;

class LaptopWorkspace final : public Workspace {
 public:
  LaptopWorkspace(LaptopStore& store, Processes& processes, Files& files)
      : store_(store), processes_(processes), files_(files) {}

  std::vector<RunningApplication> runningApplications() override;
  std::optional<RunningApplication> application(Pid pid) override;
  std::optional<BundleInfo> bundle(const std::string& path) override;
  std::optional<std::string> pathForBundleIdentifier(const std::string& identifier) override;
  std::string displayName(const std::string& path) override;
  std::string applicationsFolder() override;

 private:
  // What is known of a bundle, from the report and its Info.plist.
  struct Facts {
    BundleInfo info;
    bool opens = false;  // something describes it
    bool regular = true;
  };

  LaptopStore& store_;
  Processes& processes_;
  Files& files_;

  Facts facts(const std::string& bundlePath);
  std::optional<RunningApplication> fromProcess(Pid pid);
};

}  // namespace tovi
