// Which of the requests to stay awake that other programs hold a person would take for work.
#include <algorithm>
#include <array>

#include "observe/AgentWatcher.h"
#include "observe/AppUsage.h"
#include "platform/Assertions.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace tovi {
namespace {

// The system's own daemons, which hold requests all day long.
constexpr std::array<std::string_view, 8> kIgnoredRequesters{
    "powerd", "WindowServer", "coreaudiod", "mds_stores", "mds", "loginwindow", "sharingd", "bluetoothd",
};

constexpr std::array<std::string_view, 3> kBlockingTypes{
    "PreventUserIdleSystemSleep",
    "PreventSystemSleep",
    "NoIdleSleepAssertion",
};

// Somebody watching or listening isn't there with the lid shut.
constexpr std::array<std::string_view, 10> kMediaWords{
    "audio", "video", "media", "playback", "playing", "webrtc", "call", "wake lock", "music", "now playing",
};

constexpr std::array<std::string_view, 3> kServantWords{"update", "helper", "agent.app"};
constexpr std::array<std::string_view, 3> kSystemFolders{"/System/Library/", "/Library/Apple/", "/usr/"};

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

template <class Words>
bool containsAny(std::string_view text, const Words& words) {
  return std::ranges::any_of(words, [&](std::string_view word) { return text.find(word) != std::string_view::npos; });
}

std::string_view lastComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool isUserFacing(std::string_view name, const std::optional<std::string>& path) {
  if (name == "caffeinate") return true;  // the one bare tool that people start on purpose
  if (!path) return false;
  const std::string_view bundle = bundlePathOf(*path);
  if (bundle.empty()) return false;
  if (containsAny(lowered(lastComponent(bundle)), kServantWords)) return false;
  return std::ranges::none_of(kSystemFolders, [&](std::string_view folder) { return bundle.starts_with(folder); });
}

}  // namespace

std::string SleepBlocker::identity() const { return std::to_string(pid) + "-" + name; }

std::vector<SleepBlocker> AgentWatcher::sleepRequests(const Machine& machine) {
  std::vector<SleepBlocker> found;
  for (const AssertionRecord& record : machine.assertions.all()) {
    const std::string type = record.trueType ? *record.trueType : record.type.value_or("");
    if (std::ranges::find(kBlockingTypes, type) == kBlockingTypes.end()) continue;
    if (containsAny(lowered(record.name.value_or("")), kMediaWords)) continue;

    const Pid pid = record.onBehalfOf.value_or(record.pid);
    const std::string holder = record.processName.value_or("");
    if (std::ranges::find(kIgnoredRequesters, holder) != kIgnoredRequesters.end()) continue;
    const auto path = machine.processes.path(pid);
    if (!isUserFacing(holder, path)) continue;

    SleepBlocker request;
    request.pid = pid;
    if (const auto application = machine.workspace.application(pid); application && !application->name.empty()) {
      request.process = application->name;
    } else {
      request.process = path ? std::string(lastComponent(*path)) : holder;
    }
    request.name = record.name.value_or(type);
    request.sinceUnknown = !record.startedAt.has_value();
    request.since = request.sinceUnknown ? machine.clock.now() : *record.startedAt;
    found.push_back(std::move(request));
  }
  return found;
}

}  // namespace tovi
