#include "observe/Transcripts.h"

#include <algorithm>

#include "observe/AgentKind.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {
namespace {

// Bounds of one walk, for homes that hold years of transcripts.
constexpr int kDepth = 5;
constexpr int kBudget = 20'000;

}  // namespace

Transcripts::Transcripts(const Machine& machine) : machine_(machine) {}

std::set<std::string, std::less<>> Transcripts::changedKinds() {
  std::set<std::string, std::less<>> ids;
  for (const AgentKind& kind : AgentKind::all()) {
    for (const std::string& folder : kind.transcriptDirs) {
      if (changed(folder)) ids.insert(kind.id);
    }
  }
  return ids;
}

bool Transcripts::changed(const std::string& folder) {
  std::string path = machine_.surroundings.home + "/" + folder;
  int budget = kBudget;
  const auto date = newest(path, kDepth, budget);
  if (!date) return false;
  const auto [seen, first] = newestSeen_.try_emplace(folder, *date);
  const bool later = !first && *date > seen->second;
  seen->second = *date;  // also when it fell, since the newest file may have been deleted
  return later;
}

// `path` is the one buffer of the whole walk; it comes back as it was given.
std::optional<Date> Transcripts::newest(std::string& path, int depth, int& budget) const {
  const auto names = machine_.files.list(path);
  if (!names) return std::nullopt;
  std::optional<Date> best;
  const auto keepLater = [&best](std::optional<Date> date) {
    if (date && (!best || *date > *best)) best = date;
  };
  const std::size_t length = path.size();
  for (const std::string& name : *names) {
    if (name.starts_with('.')) continue;
    if (budget < 1) break;
    --budget;
    path += '/';
    path += name;
    if (const auto status = machine_.files.linkStatus(path)) {
      keepLater(status->modified);
      if (depth >= 2 && status->kind == FileStatus::Kind::folder) keepLater(newest(path, depth - 1, budget));
    }
    path.resize(length);
  }
  return best;
}

}  // namespace tovi
