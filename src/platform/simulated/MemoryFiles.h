// The file system in memory. It knows what a loss of power leaves: bytes written with Sync::yes, and names whose
// folder was synchronised after they changed. Folders themselves are kept from the moment they are made.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/FileEvents.h"
#include "platform/Files.h"

namespace tovi {

class MainQueue;
class MemoryClock;
class MemoryFaults;

class MemoryFiles final : public Files, public FileEvents {
 public:
  MemoryFiles(MemoryClock& clock, MemoryFaults& faults, MainQueue& queue);
  ~MemoryFiles() override;

  std::optional<std::string> read(const std::string& path) override;
  std::optional<FileStatus> status(const std::string& path) override;
  std::optional<FileStatus> linkStatus(const std::string& path) override;
  std::optional<std::vector<std::string>> list(const std::string& folder) override;
  bool create(const std::string& path, std::optional<unsigned> mode) override;
  bool write(const std::string& path, std::string_view bytes, Sync sync) override;
  bool rename(const std::string& from, const std::string& to) override;
  bool syncFolder(const std::string& folder) override;
  bool remove(const std::string& path) override;  // an empty folder too
  bool makeFolders(const std::string& folder, unsigned mode = 0755) override;
  bool setModified(const std::string& path, Date date) override;
  bool setMode(const std::string& path, unsigned mode) override;
  bool setOwner(const std::string& path, unsigned uid, unsigned gid) override;
  std::optional<std::string> resolve(const std::string& path) override;
  std::unique_ptr<Lock> tryLock(const std::string& path, Seconds patience = Seconds{0}) override;

  // Several changes before the next turn give one call.
  Registration watch(const std::string& folder, const std::string& name, std::function<void()> call) override;

  // What the world does, not the process: no operation, never fails, survives a loss of power. Folders on the way are
  // made.
  void put(const std::string& path, std::string_view bytes, unsigned mode = 0644);
  void erase(const std::string& path);
  bool link(const std::string& target, const std::string& path);  // symbolic; replaces what is there

  // A full disk takes no new file and no bytes. A read-only folder lets nothing in or below it change.
  void setFull(bool full) { full_ = full; }
  void setReadOnly(const std::string& folder, bool readOnly = true);

  void dropProcess();  // the process is gone, with its locks and watches
  void powerLoss();

 private:
  struct Node;
  struct Walk;
  struct Watch;
  class HeldLock;
  using NodePtr = std::shared_ptr<Node>;

  MemoryClock& clock_;
  MemoryFaults& faults_;
  MainQueue& queue_;
  NodePtr root_;
  std::uint64_t lastInode_ = 1;
  bool full_ = false;
  struct LockTable;
  struct WatchTable;
  std::shared_ptr<LockTable> locks_;
  std::shared_ptr<WatchTable> watches_;

  enum class Last { follow, keep };
  std::optional<FileStatus> status(std::string_view path, Last last);
  Walk walk(std::string_view path, Last last);
  NodePtr find(std::string_view path);  // what a path stands for, links followed; null: nothing there
  bool step(Walk& walk, std::string_view path, Last last, int depth);
  NodePtr make(int kind, unsigned mode);
  NodePtr makeFolder(std::string_view folder, unsigned mode);  // with those above it; null if a file is in the way
  void changed(Node& folder, std::string_view name);
  static void remember(Node& folder, std::string_view name);
  static void loseUnsynced(Node& node);
};

}  // namespace tovi
