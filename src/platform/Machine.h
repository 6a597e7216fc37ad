// The computer as the logic sees it. Everything that touches the world outside the program goes through one of
// these groups; the logic cannot tell a real machine from a simulated one.
#pragma once

#include <string>
#include <vector>

namespace tovi {

class Assertions;
class Broadcast;
class Clock;
class Commands;
class Defaults;
class Displays;
class FileEvents;
class Files;
class Http;
class MainQueue;
class Notices;
class PowerRegistry;
class Processes;
class Workspace;

// Where things lie and who we are; fixed for the life of a machine.
struct Surroundings {
  std::string home;         // the person's home folder, without a final slash
  std::string stateFolder;  // "<home>/Library/Application Support/Tovi"
  std::string temporaryFolder;
  std::string launchAgents;   // folder of the person's launch agents
  std::string sudoersFolder;  // folder of the sudo rules
  std::string localBin;       // folder of the link `tovi`
  std::string codexHome;      // the folder that CODEX_HOME names; empty if it names none
  std::string executable;     // this program, links followed
  std::string userName;
  unsigned uid = 0;                    // of the real user
  std::string hostName;                // empty if it has none
  std::string statModified;            // words that print a file's modification time in seconds, for shell scripts
  std::vector<std::string> arguments;  // the process's own, its name as invoked first
};

struct Machine {
  const Surroundings& surroundings;
  Clock& clock;
  MainQueue& queue;
  Files& files;
  FileEvents& fileEvents;
  Processes& processes;
  PowerRegistry& power;
  Displays& displays;
  Assertions& assertions;
  Workspace& workspace;
  Commands& commands;
  Defaults& defaults;
  Broadcast& broadcast;
  Notices& notices;
  Http& http;
};

}  // namespace tovi
