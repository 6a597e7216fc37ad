// A home, a runtime folder and a simulated laptop to try things on, all in one temporary folder.
#pragma once

#include <filesystem>
#include <string>

#include "Children.h"
#include "platform/Machine.h"

namespace tovi::bench {

class Stage {
 public:
  Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage();

  static std::filesystem::path program() { return TOVI_PROGRAM; }
  static std::string tool() { return (program().parent_path() / "tovi").string(); }

  std::filesystem::path root() const { return root_; }
  std::string home() const { return (root_ / "home").string(); }
  std::string stateFolder() const { return home() + "/Library/Application Support/Tovi"; }

  Environment environment() const;    // of the program and the tool on this stage
  Surroundings surroundings() const;  // the same, for a machine in this process

  bool setUp() const;               // runs `tovi setup`
  bool applicationAnswers() const;  // waits up to ten seconds for it

 private:
  std::filesystem::path root_;
};

}  // namespace tovi::bench
