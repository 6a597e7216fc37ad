// Files in which somebody else does something at an exact moment of ours.
#pragma once

#include <functional>
#include <utility>

#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

class MeddledFiles final : public Files {
 public:
  explicit MeddledFiles(const Machine& machine)
      : surroundings(machine.surroundings), real_(machine.files), machine_{surroundings,       machine.clock,
                                                                           machine.queue,      *this,
                                                                           machine.fileEvents, machine.processes,
                                                                           machine.power,      machine.displays,
                                                                           machine.assertions, machine.workspace,
                                                                           machine.commands,   machine.defaults,
                                                                           machine.broadcast,  machine.notices,
                                                                           machine.http} {}

  Surroundings surroundings;  // of machine(); a test may change them

  const Machine& machine() const { return machine_; }

  // Once, just before the first such operation on a path that ends so.
  enum class At { write, lock };
  void meddle(At at, std::string_view ending, std::function<void()> act) {
    at_ = at;
    ending_ = ending;
    act_ = std::move(act);
  }

  std::optional<std::string> read(const std::string& path) override { return real_.read(path); }
  std::optional<FileStatus> status(const std::string& path) override { return real_.status(path); }
  std::optional<FileStatus> linkStatus(const std::string& path) override { return real_.linkStatus(path); }
  std::optional<std::vector<std::string>> list(const std::string& folder) override { return real_.list(folder); }
  bool create(const std::string& path, std::optional<unsigned> mode) override { return real_.create(path, mode); }
  bool write(const std::string& path, std::string_view bytes, Sync sync) override {
    reached(At::write, path);
    return real_.write(path, bytes, sync);
  }
  bool rename(const std::string& from, const std::string& to) override { return real_.rename(from, to); }
  bool syncFolder(const std::string& folder) override { return real_.syncFolder(folder); }
  bool remove(const std::string& path) override { return real_.remove(path); }
  bool makeFolders(const std::string& folder, unsigned mode) override { return real_.makeFolders(folder, mode); }
  bool setModified(const std::string& path, Date date) override { return real_.setModified(path, date); }
  bool setMode(const std::string& path, unsigned mode) override { return real_.setMode(path, mode); }
  bool setOwner(const std::string& path, unsigned uid, unsigned gid) override { return real_.setOwner(path, uid, gid); }
  std::optional<std::string> resolve(const std::string& path) override { return real_.resolve(path); }
  std::unique_ptr<Lock> tryLock(const std::string& path, Seconds patience) override {
    reached(At::lock, path);
    return real_.tryLock(path, patience);
  }

 private:
  Files& real_;
  Machine machine_;
  At at_ = At::write;
  std::string ending_;
  std::function<void()> act_;

  void reached(At at, const std::string& path) {
    if (at == at_ && act_ && path.ends_with(ending_)) std::exchange(act_, nullptr)();
  }
};

}  // namespace tovi
