#include "commands/AppLookup.h"

#include <fmt/format.h>

#include <vector>

#include "core/Text.h"
#include "platform/Files.h"
#include "platform/Machine.h"
#include "platform/Workspace.h"

namespace tovi {

namespace {

constexpr std::string_view kSuffix = ".app";

std::string shownName(Workspace& workspace, const std::string& path) {
  std::string name = workspace.displayName(path);
  if (name.ends_with(kSuffix)) name.resize(name.size() - kSuffix.size());
  return name;
}

std::optional<std::string> identifierOf(Workspace& workspace, const std::string& path) {
  const auto bundle = workspace.bundle(path);
  return bundle ? bundle->identifier : std::nullopt;
}

std::optional<FoundApp> found(const RunningApplication& app) {
  if (!app.path) return std::nullopt;
  return FoundApp{app.name, app.bundleIdentifier, *app.path};
}

}  // namespace

std::optional<FoundApp> resolveApp(const Machine& machine, std::string_view typed) {
  const std::string text{text::trimmed(typed)};
  if (text.empty()) return std::nullopt;
  Workspace& workspace = machine.workspace;

  if (text.starts_with('/') && text.ends_with(kSuffix) && machine.files.exists(text)) {
    return FoundApp{shownName(workspace, text), identifierOf(workspace, text), text};
  }
  if (const auto path = workspace.pathForBundleIdentifier(text)) {
    return FoundApp{shownName(workspace, *path), text, *path};
  }
  const auto running = workspace.runningApplications();
  const std::string folded = text::folded(text);
  for (const RunningApplication& app : running) {
    if (app.path && text::folded(app.name) == folded) return found(app);
  }
  for (const std::string& folder : {std::string{"/Applications"}, std::string{"/System/Applications"},
                                    machine.surroundings.home + "/Applications"}) {
    const std::string path = fmt::format("{}/{}{}", folder, text, kSuffix);
    if (machine.files.exists(path)) return FoundApp{text, identifierOf(workspace, path), path};
  }
  const RunningApplication* only = nullptr;
  for (const RunningApplication& app : running) {
    if (!app.regular || text::folded(app.name).find(folded) == std::string::npos) continue;
    if (only != nullptr) return std::nullopt;
    only = &app;
  }
  return only != nullptr ? found(*only) : std::nullopt;
}

}  // namespace tovi
