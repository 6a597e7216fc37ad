// The processes that a benchmark starts: every one of them is ended, by its pid, when its owner goes, and dies with
// the benchmark if that is killed.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace tovi::bench {

// Processes that sleep, to fill the process table.
class Sleepers {
 public:
  Sleepers() = default;
  Sleepers(const Sleepers&) = delete;
  Sleepers& operator=(const Sleepers&) = delete;
  ~Sleepers();

  // Starts as many as it takes to have `count` of them; false if it couldn't.
  bool fillUpTo(std::size_t count);

 private:
  std::vector<pid_t> pids_;
};

std::size_t processCount();

using Environment = std::vector<std::string>;  // "NAME=value"

struct Run {
  int status = -1;  // exit status; 128 + N after signal N
  double wallSeconds = 0;
  double cpuSeconds = 0;
};

// Runs a program to its end, its output thrown away.
Run run(const std::vector<std::string>& words, const Environment& environment);

// A program that runs until this goes; the first word is its whole path.
class Resident {
 public:
  Resident(const std::vector<std::string>& words, const Environment& environment);
  Resident(const Resident&) = delete;
  Resident& operator=(const Resident&) = delete;
  ~Resident();

  pid_t pid() const { return pid_; }
  double cpuSeconds() const;                  // of all its threads so far
  long status(const std::string& key) const;  // a number of /proc/PID/status; -1 if there is none
  long wakeUps() const;                       // voluntary context switches of all its threads so far

 private:
  pid_t pid_;
};

// A program that answers lines with lines, on its standard streams. It ends when its input does.
class Conversation {
 public:
  Conversation(const std::vector<std::string>& words, const Environment& environment);
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation();

  pid_t pid() const { return pid_; }
  std::string ask(const std::string& line);  // the answer without its line end; empty if there is none

 private:
  pid_t pid_ = -1;
  int in_ = -1, out_ = -1;
};

// A number of /proc/PID/status; -1 if there is none.
long statusOf(pid_t pid, const std::string& key);

}  // namespace tovi::bench
