#include "platform/linux/LinuxCommands.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/Utf8.h"
#include "platform/linux/FileDescriptor.h"

namespace tovi {
namespace {

// The argument list in the form that exec wants. It points into what it was made from.
std::vector<char*> argumentList(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<char*> list{const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) list.push_back(const_cast<char*>(argument.c_str()));
  list.push_back(nullptr);
  return list;
}

// Whoever started us may ignore SIGCHLD; then the kernel would throw away what our children return.
void keepExitStatuses() {
  struct sigaction now {};
  if (::sigaction(SIGCHLD, nullptr, &now) == 0 && now.sa_handler == SIG_IGN) ::signal(SIGCHLD, SIG_DFL);
}

constexpr int kInheritable[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE};

bool isIgnored(int signal) {
  struct sigaction now {};
  return ::sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

class SpawnPlan {
 public:
  SpawnPlan() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  // What is ignored now and was when we were started goes on to the child: "nohup" made the terminal's end of no
  // account, and a shell in the background the keyboard.
  void keepIgnored(const sigset_t& inherited) {
    sigset_t rest;
    sigfillset(&rest);
    for (const int signal : kInheritable) {
      if (sigismember(&inherited, signal) == 1 && isIgnored(signal)) sigdelset(&rest, signal);
    }
    posix_spawnattr_setsigdefault(&attributes_, &rest);
  }

  void outputTo(int fd) {
    // Input last: if our own input is closed, `fd` could be 0.
    posix_spawn_file_actions_adddup2(&actions_, fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, fd, STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
  }

  // 0, or the error.
  int start(const std::string& path, const std::vector<std::string>& arguments, pid_t& child) const {
    keepExitStatuses();
    return ::posix_spawn(&child, path.c_str(), &actions_, &attributes_, argumentList(path, arguments).data(), environ);
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// Starts a program that is nobody's child afterwards, on the null device, in a session of its own if `apart`. It
// can't become a zombie and needs no waiting for. Returns 0, or the error.
int startDetached(const std::string& path, const std::vector<std::string>& arguments, bool apart) {
  keepExitStatuses();
  const std::vector<char*> list = argumentList(path, arguments);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  FileDescriptor reading{ends[0]}, writing{ends[1]};

  sigset_t all, before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t between = ::_Fork();
  if (between == 0) {
    // Between fork and exec only calls that are safe in a signal handler.
    const pid_t child = ::_Fork();
    if (child != 0) ::_exit(child < 0 ? 1 : 0);
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &usual, nullptr);
    if (apart) {
      ::setsid();
      if (::chdir("/") != 0) ::_exit(1);
    }
    // Our end of the pipe survives the tidying as number 3; what our own starter left open must not live on.
    constexpr int kReport = STDERR_FILENO + 1;
    const int moved = ::fcntl(writing.get(), F_DUPFD_CLOEXEC, kReport);
    if (moved != kReport) ::dup3(moved, kReport, O_CLOEXEC);
    const int null = ::open("/dev/null", O_RDWR);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, stream);
    ::close_range(kReport + 1, ~0U, 0);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::execv(path.c_str(), list.data());
    const int error = errno;
    [[maybe_unused]] const ssize_t told = ::write(kReport, &error, sizeof error);
    ::_exit(127);
  }
  const int forkError = errno;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (between < 0) return forkError;
  writing.reset();

  int status = 0;
  while (::waitpid(between, &status, 0) < 0 && errno == EINTR) {
  }
  // The pipe ends when the program stands, or tells why it doesn't.
  int error = 0;
  ssize_t got = 0;
  do {
    got = ::read(reading.get(), &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  if (got == static_cast<ssize_t>(sizeof error)) return error;
  return WIFEXITED(status) && WEXITSTATUS(status) != 0 ? EAGAIN : 0;
}

int exitCode(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

std::string readToEnd(int fd) {
  std::string text;
  std::array<char, 16384> room;
  while (true) {
    const ssize_t got = ::read(fd, room.data(), room.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text;
    text.append(room.data(), static_cast<std::size_t>(got));
  }
}

constexpr const char* kOpen = "/usr/bin/open";

}  // namespace

LinuxCommands::LinuxCommands(std::string executable, std::string pkexec)
    : executable_(std::move(executable)), pkexec_(std::move(pkexec)) {
  sigemptyset(&ignored_);
  for (const int signal : kInheritable) {
    if (isIgnored(signal)) sigaddset(&ignored_, signal);
  }
}

CommandResult LinuxCommands::open(const std::vector<std::string>& arguments) {
  if (arguments != std::vector<std::string>{"-g", "-b", "com.norvane.Tovi"}) return {-1, "no such tool here"};
  const int error = startDetached(executable_, {}, true);
  if (error != 0) return {-1, std::strerror(error)};
  return {};
}

CommandResult LinuxCommands::run(const std::string& path, const std::vector<std::string>& arguments) {
  if (path == kOpen) return open(arguments);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {-1, std::strerror(errno)};
  const FileDescriptor reading{ends[0]};
  FileDescriptor writing{ends[1]};

  SpawnPlan plan;
  plan.outputTo(writing.get());
  pid_t child = 0;
  if (const int error = plan.start(path, arguments, child); error != 0) return {-1, std::strerror(error)};
  writing.reset();

  CommandResult result;
  result.out = readToEnd(reading.get());
  result.code = wait(child);
  if (!isUtf8(result.out)) result.out.clear();
  return result;
}

void LinuxCommands::spawn(const std::string& path, const std::vector<std::string>& arguments) {
  if (path == kOpen) {
    open(arguments);
  } else {
    startDetached(path, arguments, false);
  }
}

ElevationResult LinuxCommands::runElevated(const std::string& shellText, const std::string&) {
  using Outcome = ElevationResult::Outcome;
  if (::access(pkexec_.c_str(), X_OK) != 0) {
    return {Outcome::failed, "This computer has no way to ask for your password once (pkexec is missing)."};
  }
  const CommandResult result = run(pkexec_, {"/bin/sh", "-c", shellText});
  if (result.code == 0) return {};
  constexpr int kDismissed = 126;  // as pkexec(1) documents it
  if (result.code == kDismissed) return {Outcome::cancelled, ""};
  const auto end = result.out.find_last_not_of(" \t\r\n");
  return {Outcome::failed, result.out.substr(0, end == std::string::npos ? 0 : end + 1)};
}

std::optional<Pid> LinuxCommands::start(const std::string& path, const std::vector<std::string>& arguments) {
  if (path == kOpen) return {};
  SpawnPlan plan;
  plan.keepIgnored(ignored_);
  pid_t child = 0;
  if (plan.start(path, arguments, child) != 0) return {};
  return child;
}

int LinuxCommands::wait(Pid child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return exitCode(status);
}

}  // namespace tovi
