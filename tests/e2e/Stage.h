// A simulated laptop in a temporary folder with a home of its own, on which the built program runs with real
// processes. Nothing on it is shared, so that many stages can stand side by side; at its end every process that was
// started on it is ended and the folder removed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi::e2e {

using Json = nlohmann::json;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Asks again and again until it is so; false when it still isn't at the limit.
bool eventually(std::chrono::milliseconds limit, const std::function<bool()>& isSo);

// A process of ours: ended and waited for when this goes.
class Process {
 public:
  explicit Process(pid_t pid) : pid_(pid) {}
  Process(Process&& other) noexcept;
  Process& operator=(Process&&) = delete;
  ~Process();

  pid_t pid() const { return pid_; }
  void signal(int number) const;

  // The exit status, or 128 + the signal that ended it; absent if it still runs at the limit.
  std::optional<int> wait(std::chrono::milliseconds limit = 10s);
  bool runs() { return !wait(0ms); }

 private:
  pid_t pid_;
  std::optional<int> status_;
};

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
  Clock::duration took{};
};

class Stage {
 public:
  Stage();  // with set-up done, the lid open, 80 % of battery, and no agent counted
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  std::filesystem::path root() const { return root_; }
  std::filesystem::path state() const;  // the state folder
  bool hasState(std::string_view name) const { return std::filesystem::exists(state() / name); }

  // The laptop: what it reports, and what has been switched on it.
  void laptop(const Json& changes);  // replaces these keys of laptop.json
  Json switches() const;
  bool switchIs(std::string_view name, const Json& value) const { return switches().value(name, Json()) == value; }
  bool sleepIsOff() const { return switchIs("SleepDisabled", true); }
  std::string commandLog() const;

  // Replaces config.json. The process table is the computer's own, with agents of other stages and of the person in
  // it, so that a stage counts none that it doesn't name: kind ids of known agents.
  void configure(const Json& settings, const std::vector<std::string>& countedKinds = {});

  // The application, running and answering.
  Process startApp();
  Process startAppUnawaited();
  bool heartBeats(const Process& app) const;  // waits for the application's first sign of life to the watchdog

  // The command line tool, to its end or left running.
  Outcome tovi(const std::vector<std::string>& arguments, std::chrono::milliseconds limit = 40s);
  Process startTovi(const std::vector<std::string>& arguments);
  Json status();  // of `tovi status --json`; null if that failed

  // One request on the wire, without the tool. `ask` waits for the reply and takes it; null if there is none.
  void post(std::string_view text);
  Json ask(const std::string& command, const Json& arguments = Json::object(), std::chrono::milliseconds limit = 5s);
  std::filesystem::path replies() const { return state() / "replies"; }

  // A process that uses about a tenth of a core, with an executable of this name. `script`: the path of what it
  // runs, below the stage.
  Process startBusy(const std::string& name, const std::string& script = "busy.sh");

  // The same as an agent of this stage alone, called "Tester". Configure the stage with customAgent() for it.
  Process startCustomAgent() { return startBusy(customName()); }
  Json customAgent() const { return {{{"name", "Tester"}, {"executables", {customName()}}}}; }
  std::string customAgentCommand();  // the same as one line for a shell
  Process startIdle();

  Process start(const std::string& program, const std::vector<std::string>& arguments, const std::string& outFile = "",
                const std::string& errFile = "");

 private:
  std::vector<std::string> busyWords(const std::string& name, const std::string& script);
  std::string customName() const { return root_.filename().string(); }

  std::filesystem::path root_;
  Json laptop_;
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view text);    // over the old text, in place
void replaceFile(const std::filesystem::path& path, std::string_view text);  // whole, by a rename

}  // namespace tovi::e2e
