#include "platform/simulated/MemoryFiles.h"

#include <unordered_set>

#include "platform/MainQueue.h"
#include "platform/simulated/MemoryClock.h"
#include "platform/simulated/MemoryFaults.h"

namespace tovi {

namespace {

enum Kind { kFile, kFolder, kLink };

struct NameHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
};

constexpr int kMostLinks = 16;                                   // on one path, as systems have it
constexpr unsigned kRead = 0400, kWrite = 0200, kSearch = 0100;  // the owner's bits; everything is the person's own

std::string_view withoutSlashes(std::string_view path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

// The name at the front of a path, which is taken off it with the slashes behind it.
std::string_view takeName(std::string_view& path) {
  const std::string_view name = path.substr(0, path.find('/'));
  path = withoutSlashes(path.substr(name.size()));
  return name;
}

}  // namespace

struct MemoryFiles::Node {
  int kind = kFile;
  unsigned mode = 0644;
  unsigned uid = 0;
  unsigned gid = 0;
  std::uint64_t inode = 0;
  Date modified;
  std::string bytes;  // a link's target
  std::string durable;
  using Entries = std::unordered_map<std::string, NodePtr, NameHash, std::equal_to<>>;
  Entries entries;
  Entries unsynced;  // names changed since the folder was synchronised, each with what it then stood for (or null)
  bool readOnly = false;
  bool watched = false;
};

// The way to a path: folders from the root to the one that holds the last name, and what that name stands for.
struct MemoryFiles::Walk {
  std::vector<NodePtr> folders;
  std::vector<std::string> names;  // of folders[1] and so on, for resolve()
  std::string last;                // empty: the path is the root itself
  NodePtr node;                    // null: nothing there
  bool reached = false;            // the holding folder exists and may be searched
  bool readOnly = false;

  Node& folder() const { return *folders.back(); }
  bool mayChangeNames() const { return reached && !last.empty() && !readOnly && (folder().mode & kWrite) != 0; }
};

struct MemoryFiles::Watch {
  NodePtr folder;
  std::string name;
  std::function<void()> call;
  bool pending = false;
};

struct MemoryFiles::WatchTable {
  std::uint64_t next = 0;
  std::unordered_map<std::uint64_t, Watch> all;
};

struct MemoryFiles::LockTable {
  std::unordered_set<std::uint64_t> held;  // inodes
};

class MemoryFiles::HeldLock final : public Files::Lock {
 public:
  HeldLock(std::weak_ptr<LockTable> table, std::uint64_t inode) : table_(std::move(table)), inode_(inode) {}
  ~HeldLock() override {
    if (const auto table = table_.lock()) table->held.erase(inode_);
  }

 private:
  std::weak_ptr<LockTable> table_;
  std::uint64_t inode_;
};

MemoryFiles::MemoryFiles(MemoryClock& clock, MemoryFaults& faults, MainQueue& queue)
    : clock_(clock),
      faults_(faults),
      queue_(queue),
      locks_(std::make_shared<LockTable>()),
      watches_(std::make_shared<WatchTable>()) {
  root_ = make(kFolder, 0755);
}

MemoryFiles::~MemoryFiles() = default;

MemoryFiles::NodePtr MemoryFiles::make(int kind, unsigned mode) {
  auto node = std::make_shared<Node>();
  node->kind = kind;
  node->mode = mode & 07777;
  node->inode = ++lastInode_;
  node->modified = clock_.now();
  return node;
}

MemoryFiles::Walk MemoryFiles::walk(std::string_view path, Last last) {
  Walk walk;
  walk.folders.reserve(12);
  walk.folders.push_back(root_);
  walk.node = root_;
  walk.readOnly = root_->readOnly;
  walk.reached = step(walk, path, last, 0);
  if (!walk.reached) walk.node = nullptr;
  return walk;
}

bool MemoryFiles::step(Walk& walk, std::string_view path, Last last, int depth) {
  if (depth > kMostLinks) return false;
  if (path.starts_with('/')) {
    walk.folders.resize(1);
    walk.names.clear();
    walk.last.clear();
    walk.node = root_;
    walk.readOnly = root_->readOnly;
  }
  path = withoutSlashes(path);
  while (!path.empty()) {
    const std::string_view name = takeName(path);
    const bool isLast = path.empty();
    // Enter what the name before stood for.
    if (!walk.last.empty()) {
      if (!walk.node || walk.node->kind != kFolder) return false;
      walk.folders.push_back(walk.node);
      walk.names.push_back(std::move(walk.last));
      walk.last.clear();
      walk.readOnly |= walk.node->readOnly;
    }
    if (name == ".") continue;
    if (name == "..") {
      if (walk.folders.size() > 1) {
        walk.folders.pop_back();
        walk.names.pop_back();
      }
      walk.node = walk.folders.back();
      continue;
    }
    Node& folder = walk.folder();
    if ((folder.mode & kSearch) == 0) return false;
    const auto found = folder.entries.find(name);
    walk.last = name;
    walk.node = found == folder.entries.end() ? nullptr : found->second;
    if (walk.node && walk.node->kind == kLink && (!isLast || last == Last::follow)) {
      const std::string target = walk.node->bytes;
      walk.last.clear();
      walk.node = walk.folders.back();
      if (!step(walk, target, Last::follow, depth + 1)) return false;
    }
  }
  return true;
}

// Asked for all the time, and mostly of plain paths, for which the way needn't be kept.
MemoryFiles::NodePtr MemoryFiles::find(std::string_view path) {
  const NodePtr* node = &root_;
  for (std::string_view rest = withoutSlashes(path); !rest.empty();) {
    const std::string_view name = takeName(rest);
    if (name == "." || name == "..") return walk(path, Last::follow).node;
    if ((*node)->kind != kFolder || ((*node)->mode & kSearch) == 0) return nullptr;
    const auto found = (*node)->entries.find(name);
    if (found == (*node)->entries.end()) return nullptr;
    node = &found->second;
    if ((*node)->kind == kLink) return walk(path, Last::follow).node;
  }
  return *node;
}

void MemoryFiles::remember(Node& folder, std::string_view name) {
  if (folder.unsynced.contains(name)) return;
  const auto at = folder.entries.find(name);
  folder.unsynced.emplace(name, at == folder.entries.end() ? nullptr : at->second);
}

void MemoryFiles::changed(Node& folder, std::string_view name) {
  if (!folder.watched) return;
  for (auto& [id, watch] : watches_->all) {
    if (watch.folder.get() != &folder || watch.name != name || watch.pending) continue;
    watch.pending = true;
    queue_.post([watchId = id, watches = std::weak_ptr(watches_)] {
      const auto still = watches.lock();
      if (!still) return;
      const auto at = still->all.find(watchId);
      if (at == still->all.end()) return;
      at->second.pending = false;
      const auto call = at->second.call;
      call();
    });
  }
}

std::optional<std::string> MemoryFiles::read(const std::string& path) {
  const NodePtr node = find(path);
  if (!node || node->kind != kFile || (node->mode & kRead) == 0) return std::nullopt;
  return node->bytes;
}

std::optional<FileStatus> MemoryFiles::status(const std::string& path) { return status(path, Last::follow); }

std::optional<FileStatus> MemoryFiles::linkStatus(const std::string& path) { return status(path, Last::keep); }

std::optional<FileStatus> MemoryFiles::status(std::string_view path, Last last) {
  const NodePtr node = last == Last::follow ? find(path) : walk(path, last).node;
  if (!node) return std::nullopt;
  FileStatus status;
  status.kind = node->kind == kFolder ? FileStatus::Kind::folder
                : node->kind == kFile ? FileStatus::Kind::file
                                      : FileStatus::Kind::other;
  status.modified = node->modified;
  status.size = node->bytes.size();
  status.inode = node->inode;
  status.mode = node->mode;
  status.uid = node->uid;
  status.gid = node->gid;
  return status;
}

std::optional<std::vector<std::string>> MemoryFiles::list(const std::string& folder) {
  const NodePtr node = find(folder);
  if (!node || node->kind != kFolder || (node->mode & kRead) == 0) return std::nullopt;
  std::vector<std::string> names;
  for (const auto& [name, entry] : node->entries) names.push_back(name);
  return names;
}

bool MemoryFiles::create(const std::string& path, std::optional<unsigned> mode) {
  const Walk at = walk(path, Last::keep);
  if ((at.node && at.node->kind == kFolder) || !at.mayChangeNames() || path.ends_with('/')) return false;
  return faults_.perform("create", path, [&] {
    if (full_) return false;
    remember(at.folder(), at.last);
    at.folder().entries.insert_or_assign(at.last, make(kFile, mode.value_or(0644)));
    at.folder().modified = clock_.now();
    changed(at.folder(), at.last);
    return true;
  });
}

bool MemoryFiles::write(const std::string& path, std::string_view bytes, Sync sync) {
  const Walk at = walk(path, Last::follow);
  if (!at.node || at.node->kind != kFile || at.readOnly || (at.node->mode & kWrite) == 0) return false;
  return faults_.perform("write", path, [&] {
    Node& file = *at.node;
    if (full_ && !bytes.empty()) return false;
    file.bytes = bytes;
    file.modified = clock_.now();
    if (sync == Sync::yes) file.durable = file.bytes;
    changed(at.folder(), at.last);
    return true;
  });
}

bool MemoryFiles::rename(const std::string& from, const std::string& to) {
  const Walk source = walk(from, Last::keep);
  const Walk target = walk(to, Last::keep);
  if (!source.node || !source.mayChangeNames() || !target.mayChangeNames()) return false;
  const bool folder = source.node->kind == kFolder;
  if (target.node) {
    const bool overFolder = target.node->kind == kFolder;
    if (folder != overFolder || (overFolder && !target.node->entries.empty())) return false;
  }
  for (const NodePtr& above : target.folders) {
    if (above == source.node) return false;  // into itself
  }
  return faults_.perform("rename", from, [&] {
    if (source.node == target.node) return true;
    remember(source.folder(), source.last);
    remember(target.folder(), target.last);
    source.folder().entries.erase(source.last);
    target.folder().entries.insert_or_assign(target.last, source.node);
    source.folder().modified = target.folder().modified = clock_.now();
    changed(source.folder(), source.last);
    changed(target.folder(), target.last);
    return true;
  });
}

bool MemoryFiles::syncFolder(const std::string& folder) {
  const Walk at = walk(folder, Last::follow);
  if (!at.node || at.node->kind != kFolder) return false;
  return faults_.perform("sync", folder, [&] {
    at.node->unsynced.clear();
    return true;
  });
}

bool MemoryFiles::remove(const std::string& path) {
  const Walk at = walk(path, Last::keep);
  if (!at.node || !at.mayChangeNames() || !at.node->entries.empty()) return false;
  return faults_.perform("remove", path, [&] {
    remember(at.folder(), at.last);
    at.folder().entries.erase(at.last);
    at.folder().modified = clock_.now();
    changed(at.folder(), at.last);
    return true;
  });
}

MemoryFiles::NodePtr MemoryFiles::makeFolder(std::string_view folder, unsigned mode) {
  for (std::size_t at = 1; at <= folder.size(); ++at) {
    if (at != folder.size() && folder[at] != '/') continue;
    const Walk here = walk(folder.substr(0, at), Last::follow);
    if (here.node) {
      if (here.node->kind != kFolder) return nullptr;
      continue;
    }
    if (!here.mayChangeNames() || full_) return nullptr;
    here.folder().entries.emplace(here.last, make(kFolder, mode));
    changed(here.folder(), here.last);
  }
  return walk(folder, Last::follow).node;
}

bool MemoryFiles::makeFolders(const std::string& folder, unsigned mode) {
  if (const NodePtr there = walk(folder, Last::follow).node) return there->kind == kFolder;
  return faults_.perform("mkdir", folder, [&] { return makeFolder(folder, mode) != nullptr; });
}

bool MemoryFiles::setModified(const std::string& path, Date date) {
  const Walk at = walk(path, Last::follow);
  if (!at.node || at.readOnly) return false;
  return faults_.perform("touch", path, [&] {
    at.node->modified = date;
    return true;
  });
}

bool MemoryFiles::setMode(const std::string& path, unsigned mode) {
  const Walk at = walk(path, Last::follow);
  if (!at.node || at.readOnly) return false;
  return faults_.perform("chmod", path, [&] {
    at.node->mode = mode & 07777;
    return true;
  });
}

bool MemoryFiles::setOwner(const std::string& path, unsigned uid, unsigned gid) {
  const Walk at = walk(path, Last::follow);
  if (!at.node || at.readOnly) return false;
  return faults_.perform("chown", path, [&] {
    at.node->uid = uid;
    at.node->gid = gid;
    return true;
  });
}

std::optional<std::string> MemoryFiles::resolve(const std::string& path) {
  const Walk at = walk(path, Last::follow);
  if (!at.node) return std::nullopt;
  std::string whole;
  for (const std::string& name : at.names) whole.append("/").append(name);
  if (!at.last.empty()) whole.append("/").append(at.last);
  return whole.empty() ? "/" : whole;
}

std::unique_ptr<Files::Lock> MemoryFiles::tryLock(const std::string& path, Seconds) {
  if (faults_.dead()) return nullptr;
  Walk at = walk(path, Last::follow);
  if (!at.node) {
    if (!at.mayChangeNames() || full_) return nullptr;
    at.node = make(kFile, 0600);
    remember(at.folder(), at.last);
    at.folder().entries.emplace(at.last, at.node);
  }
  if (at.node->kind != kFile || !locks_->held.insert(at.node->inode).second) return nullptr;
  return std::make_unique<HeldLock>(locks_, at.node->inode);
}

Registration MemoryFiles::watch(const std::string& folder, const std::string& name, std::function<void()> call) {
  const Walk at = walk(folder, Last::follow);
  if (!at.node || at.node->kind != kFolder || faults_.dead()) return {};
  at.node->watched = true;
  const std::uint64_t id = watches_->next++;
  watches_->all.emplace(id, Watch{at.node, name, std::move(call), false});
  return Registration([id, watches = std::weak_ptr(watches_)] {
    if (const auto still = watches.lock()) still->all.erase(id);
  });
}

void MemoryFiles::put(const std::string& path, std::string_view bytes, unsigned mode) {
  const NodePtr folder = makeFolder(std::string_view(path).substr(0, path.rfind('/')), 0755);
  const Walk at = walk(path, Last::follow);
  const NodePtr file = at.node ? at.node : make(kFile, mode);
  file->bytes = file->durable = bytes;
  file->mode = mode;
  file->modified = clock_.now();
  at.folder().entries.insert_or_assign(at.last, file);
  at.folder().unsynced.erase(at.last);
  changed(at.folder(), at.last);
}

void MemoryFiles::erase(const std::string& path) {
  const Walk at = walk(path, Last::keep);
  if (!at.node || at.last.empty()) return;
  at.folder().entries.erase(at.last);
  at.folder().unsynced.erase(at.last);
  changed(at.folder(), at.last);
}

bool MemoryFiles::link(const std::string& target, const std::string& path) {
  const Walk at = walk(path, Last::keep);
  if (!at.reached || at.last.empty() || (at.node && at.node->kind == kFolder)) return false;
  const NodePtr link = make(kLink, 0777);
  link->bytes = target;
  at.folder().entries.insert_or_assign(at.last, link);
  at.folder().unsynced.erase(at.last);
  changed(at.folder(), at.last);
  return true;
}

void MemoryFiles::setReadOnly(const std::string& folder, bool readOnly) {
  if (const NodePtr node = walk(folder, Last::follow).node) node->readOnly = readOnly;
}

void MemoryFiles::dropProcess() {
  locks_ = std::make_shared<LockTable>();
  watches_ = std::make_shared<WatchTable>();
}

void MemoryFiles::loseUnsynced(Node& node) {
  if (node.kind == kFile) node.bytes = node.durable;
  for (auto& [name, before] : node.unsynced) {
    if (before) {
      node.entries.insert_or_assign(name, before);
    } else {
      node.entries.erase(name);
    }
  }
  node.unsynced.clear();
  for (auto& [name, entry] : node.entries) loseUnsynced(*entry);
}

void MemoryFiles::powerLoss() {
  dropProcess();
  loseUnsynced(*root_);
}

}  // namespace tovi
