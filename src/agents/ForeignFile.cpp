#include "agents/ForeignFile.h"

#include <algorithm>

#include "core/Text.h"
#include "platform/Machine.h"

namespace tovi {

namespace {

// Always the same, so that the dead leave no more than one; turn() keeps the living apart.
constexpr char kTemporary[] = ".tovi-tmp";
constexpr Seconds kPatience{2};  // a write takes milliseconds
constexpr char kUnwritten[] = "the disk is full or the folder can't be written";

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// Whether for certain nothing stands at the path: what can't be reached may well be there.
bool isAbsent(Files& files, std::string path) {
  while (!files.linkStatus(path)) {
    const std::string folder = folderOf(path);
    if (const auto names = files.list(folder)) {
      return std::ranges::find(*names, text::lastPathComponent(path)) == names->end();
    }
    if (folder == path) return false;
    path = folder;
  }
  return false;
}

}  // namespace

ForeignFile::ForeignFile(const Machine& machine, std::string path)
    : files_(machine.files), state_(machine), path_(std::move(path)), target_(path_) {
  const auto status = files_.status(path_);
  if (!status) {
    readable_ = isAbsent(files_, path_);
    return;
  }
  exists_ = true;
  inode_ = status->inode;
  mode_ = status->mode & 0777;
  uid_ = status->uid;
  gid_ = status->gid;
  const auto target = files_.resolve(path_);
  auto text = files_.read(path_);
  readable_ = target && text && status->kind == FileStatus::Kind::file;
  if (!readable_) return;
  target_ = *target;
  text_ = std::move(*text);
}

std::string ForeignFile::name() const { return std::string{text::lastPathComponent(path_)}; }

bool ForeignFile::folderExists() const { return files_.exists(folderOf(target_)); }

std::unique_ptr<Files::Lock> ForeignFile::turn() const { return files_.tryLock(state_.path("agents.lock"), kPatience); }

bool ForeignFile::prepare(const std::string& temporary, std::string_view bytes, unsigned mode) const {
  files_.remove(temporary);
  if (files_.linkStatus(temporary)) return false;
  if (files_.create(temporary, mode) && files_.write(temporary, bytes, Files::Sync::yes)) return true;
  files_.remove(temporary);
  return false;
}

bool ForeignFile::backUp() const {
  const auto lock = turn();
  const std::string temporary = path_ + kTemporary;
  if (!lock || !prepare(temporary, text_, mode_ & 0700)) return false;
  if (!files_.rename(temporary, path_ + ".tovi-backup")) {
    files_.remove(temporary);
    return false;
  }
  files_.syncFolder(folderOf(path_));
  return true;
}

// Somebody else's file, or one shared with a group that isn't ours, would change hands silently.
bool ForeignFile::keepOwner(const std::string& temporary) const {
  if (!exists_) return true;
  const auto status = files_.status(temporary);
  if (!status) return false;
  if (status->uid == uid_ && status->gid == gid_) return true;
  return files_.setOwner(temporary, uid_, gid_);
}

// By the path, not by what it led to: somebody may have turned the link elsewhere.
bool ForeignFile::unchanged() const {
  if (!exists_) return isAbsent(files_, path_);
  const auto status = files_.status(path_);
  return status && status->inode == inode_ && (status->mode & 0777) == mode_ && files_.read(path_) == text_;
}

std::optional<std::string> ForeignFile::replace(std::string_view bytes) const {
  if (readOnly()) return "it is read-only";
  if (!folderExists()) return "its folder doesn't exist";
  const auto lock = turn();
  if (!lock) return "Tovi is busy with another file, or can't write to its own folder";
  const std::string temporary = target_ + kTemporary;
  if (!prepare(temporary, bytes, mode_)) return kUnwritten;
  if (!keepOwner(temporary)) {
    files_.remove(temporary);
    return "it belongs to another user or group";
  }
  // Looked at last, so that hardly any time is left in which its owner's writing could be lost.
  const bool same = unchanged();
  if (same && files_.rename(temporary, target_)) {
    files_.syncFolder(folderOf(target_));  // if that fails, the new file stands nevertheless
    return std::nullopt;
  }
  files_.remove(temporary);
  return same ? kUnwritten : "it has just changed";
}

void ForeignFile::sweep() const {
  for (const std::string& temporary : {path_ + kTemporary, target_ + kTemporary}) {
    if (!files_.linkStatus(temporary)) continue;
    if (const auto lock = turn()) files_.remove(temporary);
  }
}

}  // namespace tovi
