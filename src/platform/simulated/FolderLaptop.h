// The simulated laptop on a folder: its lid, battery, screens and switches are small files that a person edits, while
// processes, files and time are this computer's. So Tovi can be tried out on any computer, and tested whole.
#pragma once

#include <optional>
#include <string>

#include "platform/Machine.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/simulated/FolderStore.h"
#include "platform/simulated/LaptopAssertions.h"
#include "platform/simulated/LaptopCommands.h"
#include "platform/simulated/LaptopDisplays.h"
#include "platform/simulated/LaptopNotices.h"
#include "platform/simulated/LaptopPower.h"
#include "platform/simulated/LaptopWorkspace.h"

namespace tovi {

// Making one costs next to nothing and touches no file: folder and files are made at the first use.
class FolderLaptop {
 public:
  // `surroundings` as on the real machine; the folders of sudo rules and of tools are moved into the laptop's.
  FolderLaptop(std::string folder, Surroundings surroundings, LinuxOptions options = {});
  ~FolderLaptop() { loop_.finishLeafWork(); }
  FolderLaptop(const FolderLaptop&) = delete;
  FolderLaptop& operator=(const FolderLaptop&) = delete;

  Machine machine();  // valid as long as this object

  // TOVI_MACHINE as an absolute path; absent if it isn't set or empty.
  static std::optional<std::string> folderFromEnvironment();

 private:
  Surroundings surroundings_;
  LinuxClock clock_;
  EventLoop loop_;
  LinuxFiles files_;
  LinuxFileEvents fileEvents_;
  FolderStore store_;
  BootAnchor anchor_;
  LinuxProcesses processes_;
  LinuxCommands others_;
  JsonDefaults defaults_;
  SocketBroadcast broadcast_;
  LaptopPower power_;
  LaptopDisplays displays_;
  LaptopAssertions assertions_;
  LaptopWorkspace workspace_;
  LaptopCommands commands_;
  LaptopNotices notices_;
  CurlHttp http_{loop_};
};

}  // namespace tovi
