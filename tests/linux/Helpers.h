// What the tests of the real machine share: a folder that goes away, children that are ended by their pid, and
// waiting for a condition.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

#include "platform/linux/EventLoop.h"

namespace tovi {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tovi-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void put(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

inline bool eventually(const std::function<bool()>& condition, double seconds = 10) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// Runs the loop until the condition holds; whether it did in time.
inline bool runUntil(EventLoop& loop, const std::function<bool()>& condition, double seconds = 10) {
  bool late = false;
  const Registration limit = loop.after(Seconds{seconds}, [&] {
    late = true;
    loop.stop();
  });
  const Registration look = loop.every(Seconds{0.002}, Seconds{0.001}, [&] {
    if (condition()) loop.stop();
  });
  loop.run();
  return !late;
}

// Runs the loop for a while in which nothing is expected.
inline void runFor(EventLoop& loop, double seconds) {
  runUntil(
      loop, [] { return false; }, seconds);
}

// A child that runs `body` and then waits to be ended. Ended and reaped with this object.
class Child {
 public:
  explicit Child(const std::function<void()>& body = [] {}) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      body();
      [[maybe_unused]] const auto told = ::write(ends[1], "x", 1);
      while (true) ::pause();
    }
    ::close(ends[1]);
    char ready = 0;
    [[maybe_unused]] const auto got = ::read(ends[0], &ready, 1);
    ::close(ends[0]);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { end(); }

  pid_t pid() const { return pid_; }
  void end() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }

 private:
  pid_t pid_ = 0;
};

}  // namespace tovi
