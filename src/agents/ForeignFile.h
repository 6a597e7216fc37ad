// A file that belongs to another program. It is read whole and replaced whole, in a way that its owner hardly
// notices: a symbolic link still leads to it, its permissions and its owner stay, and what its owner wrote meanwhile
// isn't lost.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/StateFiles.h"
#include "platform/Files.h"

namespace tovi {

struct Machine;

class ForeignFile {
 public:
  // Reads the file as it stands now; nothing is read again until replace().
  ForeignFile(const Machine& machine, std::string path);

  bool exists() const { return exists_; }
  // False: something stands there that can't be read, such as a folder or a link that leads nowhere, or nobody can
  // tell whether something does, since a folder on the way can't be listed.
  bool readable() const { return readable_; }
  // Nobody has the right to write, so somebody wants it to stay as it is; a rename would get round that.
  bool readOnly() const { return exists_ && (mode_ & 0222) == 0; }
  const std::string& text() const { return text_; }  // empty if it doesn't exist
  std::string name() const;                          // the last component of its path
  bool folderExists() const;

  // Copies what was read beside the file, under its name with ".tovi-backup" added, for its owner's eyes only: the
  // copy may land in another group, or under another folder's rules, than the file.
  bool backUp() const;

  // Absent: the file says `bytes`; that their name lasts is asked of the disk, but can't always be had. Otherwise why
  // it doesn't, fit for the end of a sentence; then it is as it was. A file that has changed since it was read is
  // left alone. A new one is for its owner's eyes only; its folder must exist.
  std::optional<std::string> replace(std::string_view bytes) const;

  // Removes the one file that a writer who died may have left beside it. The next backUp() or replace() does too.
  void sweep() const;

 private:
  Files& files_;
  StateFiles state_;
  std::string path_;
  std::string target_;  // the path with links followed
  std::string text_;
  std::uint64_t inode_ = 0;
  unsigned mode_ = 0600;
  unsigned uid_ = 0;
  unsigned gid_ = 0;
  bool exists_ = false;
  bool readable_ = true;

  std::unique_ptr<Files::Lock> turn() const;
  bool prepare(const std::string& temporary, std::string_view bytes, unsigned mode) const;
  bool keepOwner(const std::string& temporary) const;
  bool unchanged() const;
};

}  // namespace tovi
