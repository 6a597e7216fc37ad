#include "core/StateFiles.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

StateFiles::StateFiles(const Machine& machine)
    : StateFiles(machine.files, machine.clock, machine.surroundings.stateFolder) {}

StateFiles::StateFiles(Files& files, Clock& clock, std::string folder)
    : files_(files), clock_(clock), folder_(std::move(folder)) {}

const std::string& StateFiles::dir() const {
  if (!made_) made_ = files_.exists(folder_) || files_.makeFolders(folder_);
  return folder_;
}

std::string StateFiles::path(std::string_view name) const { return fmt::format("{}/{}", dir(), name); }

bool StateFiles::exists(std::string_view name) const { return files_.exists(path(name)); }

std::optional<std::string> StateFiles::read(std::string_view name) const { return files_.read(path(name)); }

bool StateFiles::replace(std::string_view data, const std::string& path, std::optional<unsigned> mode,
                         bool durably) const {
  // Beside the target, so that the rename stays on one volume; with our pid, so that two processes cannot collide.
  const std::string temporary = fmt::format("{}.tmp{}", path, ::getpid());
  if (!files_.create(temporary, mode)) return false;
  if (!files_.write(temporary, data, durably ? Files::Sync::yes : Files::Sync::no) || !files_.rename(temporary, path)) {
    files_.remove(temporary);
    return false;
  }
  // The rename itself is only in the folder's pages until those are written too.
  return !durably || files_.syncFolder(path.substr(0, path.rfind('/')));
}

bool StateFiles::writeDurably(std::string_view data, const std::string& path, std::optional<unsigned> mode) const {
  return replace(data, path, mode, true);
}

bool StateFiles::writeAtomically(std::string_view data, const std::string& path, std::optional<unsigned> mode) const {
  return replace(data, path, mode, false);
}

void StateFiles::touch(const std::string& path) const {
  if (files_.exists(path)) {
    files_.setModified(path, clock_.now());
  } else {
    // A marker's first appearance is evidence of a change that survives a loss of power, so it must survive too.
    writeDurably({}, path);
  }
}

void StateFiles::remove(const std::string& path) const {
  if (files_.remove(path)) files_.syncFolder(path.substr(0, path.rfind('/')));
}

}  // namespace tovi
