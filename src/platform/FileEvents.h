// News of one file in a folder.
#pragma once

#include <functional>
#include <string>

#include "platform/Types.h"

namespace tovi {

class FileEvents {
 public:
  virtual ~FileEvents() = default;

  // Calls on the main queue after the file of this name in `folder` was written, replaced, renamed or deleted.
  // The folder is watched too, so a replacement by rename is seen. An empty registration: it can't be watched.
  virtual Registration watch(const std::string& folder, const std::string& name, std::function<void()> call) = 0;
};

}  // namespace tovi
