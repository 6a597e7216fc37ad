#include "Children.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tovi::bench {

namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (const auto& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

// -1 if it can't start. `in` and `out`: its standard streams; -1 is nothing.
pid_t start(const std::vector<std::string>& words, const Environment& environment, int in = -1, int out = -1) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (in < 0) posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (out < 0) posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (in >= 0) posix_spawn_file_actions_adddup2(&actions, in, 0);
  if (out >= 0) posix_spawn_file_actions_adddup2(&actions, out, 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int failed =
      ::posix_spawnp(&pid, words[0].c_str(), &actions, nullptr, pointers(words).data(), pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  return failed ? -1 : pid;
}

// The same, slower, for one that dies with this process.
pid_t startBound(const std::vector<std::string>& words, const Environment& environment) {
  const auto wordPointers = pointers(words), environmentPointers = pointers(environment);
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {0, 1, 2}) ::dup2(nothing, stream);
  ::execve(words[0].c_str(), wordPointers.data(), environmentPointers.data());
  ::_exit(127);
}

long numberAfter(const std::string& file, const std::string& key) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(key + ":")) return std::atol(line.c_str() + key.size() + 1);
  return -1;
}

}  // namespace

std::size_t processCount() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const auto name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") == std::string::npos) ++count;
  }
  return count;
}

bool Sleepers::fillUpTo(std::size_t count) {
  while (pids_.size() < count) {
    const pid_t pid = startBound({"/bin/sleep", "3600"}, {});
    if (pid < 0) return false;
    pids_.push_back(pid);
  }
  return true;
}

Sleepers::~Sleepers() {
  for (const pid_t pid : pids_) ::kill(pid, SIGKILL);
  for (const pid_t pid : pids_) ::waitpid(pid, nullptr, 0);
}

Run run(const std::vector<std::string>& words, const Environment& environment) {
  Run result;
  const auto begin = std::chrono::steady_clock::now();
  const pid_t pid = start(words, environment);
  if (pid < 0) return result;
  int status = 0;
  rusage usage{};
  if (::wait4(pid, &status, 0, &usage) != pid) return result;
  result.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  result.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

Resident::Resident(const std::vector<std::string>& words, const Environment& environment)
    : pid_(startBound(words, environment)) {}

Resident::~Resident() {
  if (pid_ < 2) return;
  ::kill(pid_, SIGTERM);
  for (int i = 0; i < 100; ++i) {
    if (::waitpid(pid_, nullptr, WNOHANG) == pid_) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

double Resident::cpuSeconds() const {
  clockid_t clock{};
  timespec time{};
  if (::clock_getcpuclockid(pid_, &clock) != 0 || ::clock_gettime(clock, &time) != 0) return -1;
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

long Resident::status(const std::string& key) const { return statusOf(pid_, key); }

long Resident::wakeUps() const {
  long sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task"))
    sum += numberAfter((task.path() / "status").string(), "voluntary_ctxt_switches");
  return sum;
}

Conversation::Conversation(const std::vector<std::string>& words, const Environment& environment) {
  int input[2], output[2];
  if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) return;
  pid_ = start(words, environment, input[0], output[1]);
  ::close(input[0]);
  ::close(output[1]);
  in_ = input[1];
  out_ = output[0];
}

Conversation::~Conversation() {
  ::close(in_);
  ::close(out_);
  if (pid_ > 1) ::waitpid(pid_, nullptr, 0);
}

std::string Conversation::ask(const std::string& line) {
  const std::string text = line + "\n";
  if (::write(in_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return {};
  std::string answer;
  for (char c = 0; ::read(out_, &c, 1) == 1 && c != '\n';) answer += c;
  return answer;
}

long statusOf(pid_t pid, const std::string& key) {
  return numberAfter("/proc/" + std::to_string(pid) + "/status", key);
}

}  // namespace tovi::bench
