#include "core/ConfigWatcher.h"

#include <fmt/format.h>

#include "core/StateFiles.h"
#include "platform/FileEvents.h"
#include "platform/Files.h"

namespace tovi {

ConfigWatcher::ConfigWatcher(Files& files, FileEvents& events, const StateFiles& state, std::function<void()> onChange)
    : files_(files), events_(events), state_(state), onChange_(std::move(onChange)) {}

void ConfigWatcher::start() {
  source_ = events_.watch(state_.dir(), "config.json", [this] { check(); });
  if (source_) lastStamp_ = stamp();
}

std::optional<std::string> ConfigWatcher::stamp() const {
  const auto status = files_.status(state_.path("config.json"));
  if (!status) return std::nullopt;
  return fmt::format("{:.9f}-{}-{}", unixSeconds(status->modified), status->size, status->inode);
}

void ConfigWatcher::check() {
  auto now = stamp();
  if (now == lastStamp_) return;
  lastStamp_ = std::move(now);
  onChange_();
}

}  // namespace tovi
