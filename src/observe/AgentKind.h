// One known kind of agent, and the table of those that Tovi knows by itself.
#pragma once

#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/Config.h"

namespace tovi {

struct AgentKind {
  std::string id;                                  // under which sessions merge and config lists name it
  std::string name;                                // as shown
  std::set<std::string, std::less<>> executables;  // exact file names
  std::vector<std::string> scriptHints;            // looked for in an interpreter's first arguments
  std::vector<std::string> transcriptDirs;         // below the home folder, written while it works
  double idleWatts = 0;                            // the tree's draw above which it counts as active

  friend bool operator==(const AgentKind&, const AgentKind&) = default;

  bool isRequest() const { return id.starts_with("request:"); }  // another program's request to stay awake
  bool isApp() const { return id.starts_with("app:"); }          // an application or tool of the person's list

  static const std::vector<AgentKind>& all();              // in the order of matching
  static const AgentKind& claudeApp();                     // found by bundle identifier
  static bool isInterpreter(std::string_view executable);  // file names whose arguments are read

  static AgentKind custom(const CustomAgent& agent);
  static AgentKind watched(const WatchedApp& app);
  static AgentKind request(const std::string& process);
};

}  // namespace tovi
