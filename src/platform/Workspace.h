// Applications: those that run, and what their bundles say of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct RunningApplication {
  Pid pid = 0;
  std::string name = {};  // as shown to the person
  std::optional<std::string> bundleIdentifier = {};
  std::optional<std::string> path = {};  // of the bundle, ending in ".app"
  bool regular = false;                  // an ordinary application with a face, not a background one
};

struct BundleInfo {
  std::optional<std::string> displayName;  // "CFBundleDisplayName"
  std::optional<std::string> name;         // "CFBundleName"
  std::optional<std::string> identifier;   // "CFBundleIdentifier"
};

class Workspace {
 public:
  virtual ~Workspace() = default;

  virtual std::vector<RunningApplication> runningApplications() = 0;
  virtual std::optional<RunningApplication> application(Pid pid) = 0;

  // The facts of the bundle at a path; absent if it can't be opened as one.
  virtual std::optional<BundleInfo> bundle(const std::string& path) = 0;
  virtual std::optional<std::string> pathForBundleIdentifier(const std::string& identifier) = 0;
  virtual std::string displayName(const std::string& path) = 0;

  // Where an installed application lies, with a final slash.
  virtual std::string applicationsFolder() = 0;
};

}  // namespace tovi
