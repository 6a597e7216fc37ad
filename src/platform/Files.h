// The file system, in steps small enough that a crash between any two of them can be played: StateFiles
// builds its safe writes from these, and the in-memory twin counts each as one operation and forgets what
// was not synchronised when its power is cut.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct FileStatus {
  enum class Kind { file, folder, other };
  Kind kind = Kind::file;
  Date modified;
  std::uint64_t size = 0;  // bytes
  std::uint64_t inode = 0;
  unsigned mode = 0;  // permission bits
  unsigned uid = 0;
  unsigned gid = 0;

  friend bool operator==(const FileStatus&, const FileStatus&) = default;
};

// Every path is absolute, any bytes but NUL. Operations that return a bool say whether they did it.
class Files {
 public:
  virtual ~Files() = default;

  virtual std::optional<std::string> read(const std::string& path) = 0;

  // Follows symbolic links. Absent if there is nothing at the path or it can't be reached.
  virtual std::optional<FileStatus> status(const std::string& path) = 0;
  bool exists(const std::string& path) { return status(path).has_value(); }

  // The same of the item itself: a symbolic link is `other`, wherever it leads. A file system without links
  // needs nothing of its own here.
  virtual std::optional<FileStatus> linkStatus(const std::string& path) { return status(path); }

  // The names in a folder without "." and "..", in the file system's own order; absent if it can't be listed.
  virtual std::optional<std::vector<std::string>> list(const std::string& folder) = 0;

  // Makes an empty file in place of a file or a link of that name; a link isn't followed. `mode` holds from the first
  // byte; without it 0644, less the process's mask.
  virtual bool create(const std::string& path, std::optional<unsigned> mode) = 0;

  enum class Sync { no, yes };

  // Replaces the content of an existing file. With Sync::yes true means that the bytes reached the disk.
  virtual bool write(const std::string& path, std::string_view bytes, Sync sync) = 0;

  virtual bool rename(const std::string& from, const std::string& to) = 0;

  // Makes the creations, renames and removals done in a folder so far survive a loss of power.
  virtual bool syncFolder(const std::string& folder) = 0;

  virtual bool remove(const std::string& path) = 0;
  virtual bool makeFolders(const std::string& folder, unsigned mode = 0755) = 0;
  virtual bool setModified(const std::string& path, Date date) = 0;
  virtual bool setMode(const std::string& path, unsigned mode) = 0;

  // Gives the file to a user and a group; false where that isn't ours to give. A file system without owners has
  // nothing to do.
  virtual bool setOwner(const std::string& path, unsigned uid, unsigned gid) = 0;

  // The path with every symbolic link followed; absent if it doesn't exist.
  virtual std::optional<std::string> resolve(const std::string& path) = 0;

  // An exclusive advisory lock on a file made for it (mode 0600), held until the handle goes or the process
  // dies; null if the file can't be opened, or somebody else holds it and still does after `patience`. Time of
  // the machine in memory doesn't pass while somebody waits.
  class Lock {
   public:
    virtual ~Lock() = default;
  };
  virtual std::unique_ptr<Lock> tryLock(const std::string& path, Seconds patience = Seconds{0}) = 0;
};

}  // namespace tovi
