// The folder in which everything lives that must outlive a process, as small files with one owner each, and the
// safe ways to write there. The presence of a file often is the state, so that a shell script can test it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovi {

class Clock;
class Files;
struct Machine;

class StateFiles {
 public:
  explicit StateFiles(const Machine& machine);
  StateFiles(Files& files, Clock& clock, std::string folder);

  // The folder, made with its parents at first use. Whether that worked shows at the first write.
  const std::string& dir() const;
  std::string path(std::string_view name) const;

  bool exists(std::string_view name) const;
  std::optional<std::string> read(std::string_view name) const;

  // All paths below are whole paths, as path() gives them.

  // A reader sees the old complete file or the new one; after true the content and its name have reached the
  // disk. With `mode` the file has those permissions from its first byte. A failure leaves the old file, or, where
  // only its name couldn't be made to last, the new one; never a third.
  bool writeDurably(std::string_view data, const std::string& path, std::optional<unsigned> mode = {}) const;

  // The same without waiting for the disk: for what the next beat writes again.
  bool writeAtomically(std::string_view data, const std::string& path, std::optional<unsigned> mode = {}) const;

  // Makes the file exist and carry a current modification date. Failures are ignored; who must know looks.
  void touch(const std::string& path) const;

  // Deletes; a failure is ignored, a missing file included.
  void remove(const std::string& path) const;

 private:
  bool replace(std::string_view data, const std::string& path, std::optional<unsigned> mode, bool durably) const;

  Files& files_;
  Clock& clock_;
  std::string folder_;
  mutable bool made_ = false;
};

}  // namespace tovi
