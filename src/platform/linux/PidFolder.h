// A folder whose entries are named by process or thread identifiers, as /proc and /proc/PID/task.
#pragma once

#include <dirent.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

// Kept open, it can be listed again and again.
class PidFolder {
 public:
  explicit PidFolder(const std::string& path);

  int descriptor() const;  // for openat(); -1 if the folder couldn't be opened

  // The identifiers of 1 and above by rising number, in place of what `pids` held; empty if they can't be had.
  void list(std::vector<Pid>& pids) const;

 private:
  struct End {
    void operator()(DIR* folder) const { ::closedir(folder); }
  };
  std::unique_ptr<DIR, End> folder_;
};

}  // namespace tovi
