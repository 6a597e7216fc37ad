#include "platform/linux/LinuxMachine.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "platform/linux/SystemFile.h"

namespace tovi {
namespace {

// The value if it is an absolute path, without final slashes.
std::optional<std::string> folderFromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || value[0] != '/') return {};
  std::string_view folder = value;
  while (folder.size() > 1 && folder.ends_with('/')) folder.remove_suffix(1);
  return std::string{folder};
}

}  // namespace

LinuxMachine::LinuxMachine(Surroundings surroundings, LinuxOptions options)
    : surroundings_(std::move(surroundings)),
      fileEvents_(loop_),
      anchor_(surroundings_.stateFolder),
      processes_(std::move(options.procRoot), anchor_),
      workspace_(files_, standardApplicationFolders(surroundings_.home)),
      commands_(surroundings_.executable),
      defaults_(files_, defaultsPath(surroundings_.home)),
      broadcast_(loop_, surroundings_.stateFolder, std::move(options.runtimeFolder)) {}

Machine LinuxMachine::machine() {
  return Machine{surroundings_, clock_,     loop_,     files_,    fileEvents_, processes_, power_, displays_,
                 assertions_,   workspace_, commands_, defaults_, broadcast_,  notices_,   http_};
}

Surroundings surroundingsFromEnvironment(int argc, char** argv) {
  Surroundings found;
  found.uid = ::getuid();
  const passwd* account = ::getpwuid(found.uid);
  if (account != nullptr) found.userName = account->pw_name;
  found.home = folderFromEnvironment("HOME").value_or(account != nullptr ? account->pw_dir : "/");
  found.stateFolder = found.home + "/Library/Application Support/Tovi";
  found.temporaryFolder = folderFromEnvironment("TMPDIR").value_or("/tmp");
  found.launchAgents = found.home + "/Library/LaunchAgents";
  found.sudoersFolder = "/private/etc/sudoers.d";
  found.localBin = "/usr/local/bin";
  found.codexHome = folderFromEnvironment("CODEX_HOME").value_or("");
  found.statModified = "/usr/bin/stat -c %Y";
  std::array<char, PATH_MAX> room;
  if (const auto self = readProcessLink(AT_FDCWD, "/proc/self/exe", room)) found.executable = *self;
  if (::gethostname(room.data(), room.size()) == 0) {
    room.back() = '\0';
    found.hostName = room.data();
  }
  found.arguments.assign(argv, argv + argc);
  return found;
}

std::optional<std::string> runtimeFolderFromEnvironment() { return folderFromEnvironment("XDG_RUNTIME_DIR"); }

}  // namespace tovi
