// Applications of the simulated laptop: those that its report lists, and every process that runs inside a bundle
// which the report doesn't list by pid, but for those that another of the same bundle started.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/Workspace.h"

namespace tovi {

class Files;
class LaptopStore;
class Processes;

class LaptopWorkspace final : public Workspace {
 public:
  // `home`: the person's folder, which may hold applications of their own.
  LaptopWorkspace(LaptopStore& store, Processes& processes, Files& files, std::string home)
      : store_(store), processes_(processes), files_(files), home_(std::move(home)) {}

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
  std::string home_;

  Facts facts(const std::string& bundlePath);
  std::optional<RunningApplication> fromProcess(Pid pid, std::unordered_map<std::string, Facts>& known);
};

}  // namespace tovi
