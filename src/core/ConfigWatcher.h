// Tells when config.json has changed, however an editor went about it.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Types.h"

namespace tovi {

class FileEvents;
class Files;
class StateFiles;

class ConfigWatcher {
 public:
  ConfigWatcher(Files& files, FileEvents& events, const StateFiles& state, std::function<void()> onChange);

  // Without file events on this machine nothing happens; the periodic look at the file still finds changes.
  void start();

  // The identity of the file's present state: modification time, size and inode, since an editor can replace a
  // file within the same time stamp. Absent if there is no file.
  std::optional<std::string> stamp() const;

 private:
  void check();

  Files& files_;
  FileEvents& events_;
  const StateFiles& state_;
  std::function<void()> onChange_;
  std::optional<std::string> lastStamp_;
  Registration source_;
};

}  // namespace tovi
