#include "platform/linux/PidFolder.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace tovi {

PidFolder::PidFolder(const std::string& path) : folder_(::opendir(path.c_str())) {}

int PidFolder::descriptor() const { return folder_ ? ::dirfd(folder_.get()) : -1; }

void PidFolder::list(std::vector<Pid>& pids) const {
  pids.clear();
  if (!folder_) return;
  ::rewinddir(folder_.get());
  while (const dirent* entry = ::readdir(folder_.get())) {
    const char* name = entry->d_name;
    if (name[0] < '1' || name[0] > '9') continue;
    const char* stop = name + std::strlen(name);
    Pid pid = 0;
    const auto [end, error] = std::from_chars(name, stop, pid);
    if (error == std::errc{} && end == stop) pids.push_back(pid);
  }
  if (!std::is_sorted(pids.begin(), pids.end())) std::sort(pids.begin(), pids.end());
}

}  // namespace tovi
