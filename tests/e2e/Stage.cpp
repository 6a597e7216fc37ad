#include "e2e/Stage.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace tovi::e2e {

namespace fs = std::filesystem;

namespace {

const fs::path kProgram = TOVI_PROGRAM;

}  // namespace

bool eventually(std::chrono::milliseconds limit, const std::function<bool()>& isSo) {
  const auto end = Clock::now() + limit;
  for (;;) {
    if (isSo()) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(20ms);
  }
}

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const fs::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

void replaceFile(const fs::path& path, std::string_view text) {
  const fs::path fresh = path.string() + ".new";
  writeFile(fresh, text);
  fs::rename(fresh, path);
}

Process::Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}

Process::~Process() {
  if (pid_ < 2 || status_) return;
  signal(SIGCONT);
  signal(SIGTERM);
  if (wait(10s)) return;
  signal(SIGKILL);
  wait(10s);
}

void Process::signal(int number) const {
  if (pid_ > 1 && !status_) ::kill(pid_, number);
}

std::optional<int> Process::wait(std::chrono::milliseconds limit) {
  if (status_ || pid_ < 2) return status_;
  eventually(limit, [&] {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) != pid_) return false;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
  });
  return status_;
}

Stage::Stage() {
  std::string pattern = (fs::temp_directory_path() / "tovi-e2e-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
  root_ = fs::canonical(pattern);
  for (const char* folder : {"home", "tmp", "laptop", "bin", "run"}) fs::create_directory(root_ / folder);
  fs::permissions(root_ / "run", fs::perms::owner_all);
  laptop({{"lid", "open"}, {"applicationsFolder", kProgram.parent_path().string() + "/"}});
  fs::create_directories(state());
  configure(Json::object());
  const auto setup = tovi({"setup"});
  if (setup.status != 0) ADD_FAILURE() << "tovi setup: " << setup.status << " " << setup.out << setup.err;
}

Stage::~Stage() {
  if (::testing::Test::HasFailure()) {
    std::printf("commands.log:\n%s\nthe application said:\n%s\n", commandLog().c_str(),
                readFile(root_ / "app.log").c_str());
  }
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

fs::path Stage::state() const { return root_ / "home/Library/Application Support/Tovi"; }

void Stage::laptop(const Json& changes) {
  laptop_.update(changes);
  replaceFile(root_ / "laptop/laptop.json", laptop_.dump(2));
}

void Stage::configure(const Json& settings, const std::vector<std::string>& countedKinds) {
  Json left = Json::array();
  for (const char* kind :
       {"claude-code", "codex", "gemini", "cursor-agent", "opencode", "aider", "copilot", "amp", "ollama"})
    if (std::find(countedKinds.begin(), countedKinds.end(), kind) == countedKinds.end()) left.push_back(kind);
  Json all = {{"trackOnly", left}};
  all.update(settings);
  replaceFile(state() / "config.json", all.dump(2));
}

Json Stage::switches() const {
  auto value = Json::parse(readFile(root_ / "laptop/switches.json"), nullptr, false);
  return value.is_object() ? value : Json::object();
}

std::string Stage::commandLog() const { return readFile(root_ / "laptop/commands.log"); }

Process Stage::start(const std::string& program, const std::vector<std::string>& arguments, const std::string& outFile,
                     const std::string& errFile) {
  std::vector<std::string> environment = {
      "HOME=" + (root_ / "home").string(),
      "TMPDIR=" + (root_ / "tmp").string(),
      "XDG_RUNTIME_DIR=" + (root_ / "run").string(),
      "TOVI_MACHINE=" + (root_ / "laptop").string(),
      "PATH=/usr/local/bin:/usr/bin:/bin",
      "TZ=UTC",
      "LC_ALL=C.UTF-8",
  };
  for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"})
    if (const char* value = std::getenv(name)) environment.push_back(std::string(name) + "=" + value);

  std::vector<std::string> words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
  };
  auto argv = pointers(words);
  auto envp = pointers(environment);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const auto redirect = [&](int fd, const std::string& file) {
    posix_spawn_file_actions_addopen(&actions, fd, file.empty() ? "/dev/null" : file.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
  };
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  redirect(1, outFile);
  redirect(2, errFile);
  posix_spawn_file_actions_addchdir_np(&actions, root_.c_str());
  pid_t pid = -1;
  const int failed = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (failed) throw std::runtime_error("can't start " + program + ": " + std::strerror(failed));
  return Process(pid);
}

Process Stage::startAppUnawaited() {
  const std::string log = (root_ / "app.log").string();
  return start(kProgram.string(), {}, log, log);
}

Process Stage::startApp() {
  Process app = startAppUnawaited();
  EXPECT_TRUE(eventually(20s, [&] { return ask("config", Json::object(), 500ms).is_object(); }))
      << "the application doesn't answer";
  return app;
}

bool Stage::heartBeats(const Process& app) const {
  const auto own = " " + std::to_string(app.pid()) + " ";
  return eventually(6s, [&] { return readFile(state() / "alive").find(own) != std::string::npos; });
}

Process Stage::startTovi(const std::vector<std::string>& arguments) {
  return start((kProgram.parent_path() / "tovi").string(), arguments, (root_ / "tovi.out").string(),
               (root_ / "tovi.err").string());
}

Outcome Stage::tovi(const std::vector<std::string>& arguments, std::chrono::milliseconds limit) {
  static std::atomic<int> count = 0;
  const std::string name = (root_ / "tmp/run-").string() + std::to_string(count++);
  const auto begin = Clock::now();
  Process process = start((kProgram.parent_path() / "tovi").string(), arguments, name + ".out", name + ".err");
  const auto status = process.wait(limit);
  return {status.value_or(-1), readFile(name + ".out"), readFile(name + ".err"), Clock::now() - begin};
}

Json Stage::status() {
  const auto outcome = tovi({"status", "--json"});
  return outcome.status == 0 ? Json::parse(outcome.out, nullptr, false) : Json();
}

void Stage::post(std::string_view text) {
  if (!fs::exists(root_ / "run/tovi") || fs::is_empty(root_ / "run/tovi")) return;  // nobody listens yet
  const std::string path = fs::directory_iterator(root_ / "run/tovi")->path().string();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(fd, 0);
  [[maybe_unused]] const auto sent =
      ::sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::close(fd);
}

Json Stage::ask(const std::string& command, const Json& arguments, std::chrono::milliseconds limit) {
  static std::atomic<int> count = 0;
  const std::string id = "e2e-" + std::to_string(::getpid()) + "-" + std::to_string(count++);
  post(Json{{"id", id}, {"cmd", command}, {"args", arguments}}.dump());
  const auto path = replies() / (id + ".json");
  Json reply;
  eventually(limit, [&] {
    reply = Json::parse(readFile(path), nullptr, false);
    return reply.is_object();
  });
  if (!reply.is_object()) return Json();
  fs::remove(path);
  return reply;
}

std::vector<std::string> Stage::busyWords(const std::string& name, const std::string& script) {
  const auto executable = root_ / "bin" / name;
  if (!fs::exists(executable)) fs::copy_file(fs::canonical("/bin/sh"), executable);
  const auto path = root_ / script;
  fs::create_directories(path.parent_path());
  writeFile(path, "while :; do i=0; while [ $i -lt 20000 ]; do i=$((i + 1)); done; sleep 0.2; done\n");
  return {executable.string(), path.string()};
}

Process Stage::startBusy(const std::string& name, const std::string& script) {
  const auto words = busyWords(name, script);
  return start(words[0], {words[1]});
}

std::string Stage::customAgentCommand() {
  const auto words = busyWords(customName(), "busy.sh");
  return "\"" + words[0] + "\" \"" + words[1] + "\"";
}

Process Stage::startIdle() { return start("/bin/sleep", {"600"}); }

}  // namespace tovi::e2e
