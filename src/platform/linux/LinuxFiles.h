// The real file system.
#pragma once

#include "platform/Files.h"

namespace tovi {

// Reads regular files only, up to 64 MiB; anything else is absent. remove() takes an empty folder too.
class LinuxFiles : public Files {
 public:
  std::optional<std::string> read(const std::string& path) override;
  std::optional<FileStatus> status(const std::string& path) override;
  std::optional<FileStatus> linkStatus(const std::string& path) override;
  std::optional<std::vector<std::string>> list(const std::string& folder) override;
  bool create(const std::string& path, std::optional<unsigned> mode) override;
  bool write(const std::string& path, std::string_view bytes, Sync sync) override;
  bool rename(const std::string& from, const std::string& to) override;
  bool syncFolder(const std::string& folder) override;
  bool remove(const std::string& path) override;
  bool makeFolders(const std::string& folder, unsigned mode = 0755) override;
  bool setModified(const std::string& path, Date date) override;
  bool setMode(const std::string& path, unsigned mode) override;
  bool setOwner(const std::string& path, unsigned uid, unsigned gid) override;
  std::optional<std::string> resolve(const std::string& path) override;
  std::unique_ptr<Lock> tryLock(const std::string& path, Seconds patience = Seconds{0}) override;
};

}  // namespace tovi
