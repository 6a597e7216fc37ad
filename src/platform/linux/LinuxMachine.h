// The real computer as a machine.
#pragma once

#include <optional>
#include <string>

#include "platform/Machine.h"
#include "platform/linux/AbsentHardware.h"
#include "platform/linux/BootAnchor.h"
#include "platform/linux/CurlHttp.h"
#include "platform/linux/EventLoop.h"
#include "platform/linux/JsonDefaults.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxCommands.h"
#include "platform/linux/LinuxFileEvents.h"
#include "platform/linux/LinuxFiles.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/SocketBroadcast.h"

namespace tovi {

struct LinuxOptions {
  std::string procRoot = "/proc";
  std::optional<std::string> runtimeFolder;  // the person's folder for sockets; see runtimeFolderFromEnvironment()
};

// Making one costs next to nothing and touches no file: each part starts at its first use.
class LinuxMachine {
 public:
  explicit LinuxMachine(Surroundings surroundings, LinuxOptions options = {});
  ~LinuxMachine() { loop_.finishLeafWork(); }
  LinuxMachine(const LinuxMachine&) = delete;
  LinuxMachine& operator=(const LinuxMachine&) = delete;

  Machine machine();  // valid as long as this object

 private:
  Surroundings surroundings_;
  LinuxClock clock_;
  EventLoop loop_;
  LinuxFiles files_;
  LinuxFileEvents fileEvents_;
  BootAnchor anchor_;
  LinuxProcesses processes_;
  AbsentPower power_;
  AbsentDisplays displays_;
  AbsentAssertions assertions_;
  LinuxWorkspace workspace_;
  LinuxCommands commands_;
  JsonDefaults defaults_;
  SocketBroadcast broadcast_;
  AbsentNotices notices_;
  CurlHttp http_{loop_};
};

// HOME (or the home folder of the user's account), TMPDIR, and what the system says of this process.
Surroundings surroundingsFromEnvironment(int argc, char** argv);

// XDG_RUNTIME_DIR if it is set and absolute.
std::optional<std::string> runtimeFolderFromEnvironment();

}  // namespace tovi
