// Other programs, run by path and arguments with no shell between.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct CommandResult {
  int code = 0;     // exit status; 128 + N after signal N; -1 if it couldn't start
  std::string out;  // both output streams as text, empty if it isn't UTF-8; after -1 the reason
};

struct ElevationResult {
  enum class Outcome { done, cancelled, failed };
  Outcome outcome = Outcome::done;
  std::string message;  // after `failed`, fit for the person; may be empty
};

class Commands {
 public:
  virtual ~Commands() = default;

  // Runs to the end.
  virtual CommandResult run(const std::string& path, const std::vector<std::string>& arguments) = 0;

  // Starts it with both output streams on the null device and doesn't wait.
  virtual void spawn(const std::string& path, const std::vector<std::string>& arguments) = 0;

  // Runs one line of shell text as root after asking the person once, with `prompt` as the question.
  virtual ElevationResult runElevated(const std::string& shellText, const std::string& prompt) = 0;

  // Starts a program that inherits the standard streams; absent if it can't start.
  virtual std::optional<Pid> start(const std::string& path, const std::vector<std::string>& arguments) = 0;

  // Waits for what start() gave: its exit status, or 128 + the signal that ended it.
  virtual int wait(Pid child) = 0;
};

}  // namespace tovi
