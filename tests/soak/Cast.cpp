#include "soak/Cast.h"

#include <algorithm>

namespace tovi::soak {

const std::vector<AppKind> kAppKinds = {
    {"Terminal", "com.apple.Terminal", "/System/Applications/Terminal.app"},
    {"iTerm", "com.googlecode.iterm2", "/Applications/iTerm.app"},
    {"Notes", "com.example.notes", "/Applications/Notes.app"},
    {"Exporter", "com.example.exporter", "/Applications/Exporter.app"},
    {"Mail", "com.apple.mail", "/System/Applications/Mail.app"},
    {"Music", "com.spotify.client", "/Applications/Music.app"},
    {"Calls", "us.zoom.xos", "/Applications/Calls.app"},
    {"Docker Desktop", "com.docker.docker", "/Applications/Docker.app"},
    {"Redis Tool", "com.example.redis", "/Applications/Redis Tool.app"},
    {"Claude", "com.anthropic.claudefordesktop", "/Applications/Claude.app"},
    {"Simulator", "com.apple.iphonesimulator", "/Applications/Xcode.app/Contents/Developer/Applications/Simulator.app"},
    {"Finder", "com.apple.finder", "/System/Library/CoreServices/Finder.app"},
};

namespace {

constexpr const char* kAgents[][2] = {{"/usr/local/bin/claude", ""},
                                      {"/opt/homebrew/bin/codex", ""},
                                      {"/opt/homebrew/bin/node", "/opt/homebrew/lib/node_modules/@google/gemini-cli"},
                                      {"/usr/bin/python3", "/home/anna/.local/bin/aider"}};

constexpr const char* kTools[] = {"/usr/bin/make", "/usr/bin/clang", "/usr/bin/git",        "/usr/local/bin/rg",
                                  "/bin/sh",       "/usr/bin/ninja", "/home/anna/bin/test", "/usr/bin/sleep"};

}  // namespace

const Actor* Cast::find(Pid pid) const {
  const auto at = std::ranges::find(actors_, pid, &Actor::pid);
  return at == actors_.end() ? nullptr : &*at;
}

int Cast::count(Part part) const { return static_cast<int>(std::ranges::count(actors_, part, &Actor::part)); }

Pid Cast::any(Part part) {
  const int there = count(part);
  if (there == 0) return 0;
  int left = random_.whole(1, there);
  for (const Actor& actor : actors_) {
    if (actor.part == part && --left == 0) return actor.pid;
  }
  return 0;
}

Pid Cast::freePid() {
  do {
    next_ = next_ + 1 == kFirst + kNumbers ? kFirst : next_ + 1;
  } while (laptop_.processes().exists(next_));
  return next_;
}

Pid Cast::start(Part part, MemoryProcess process, std::int64_t tick) {
  if (process.pid == 0) process.pid = freePid();
  if (laptop_.processes().stopped(process.parent)) process.parent = 1;  // it can't start anything
  std::erase_if(actors_, [&](const Actor& actor) { return actor.pid == process.pid; });
  if (process.arguments.empty()) process.arguments = {process.path};
  if (process.workingDirectory.empty()) process.workingDirectory += '/';
  const Pid pid = laptop_.processes().add(std::move(process));
  actors_.push_back({.pid = pid,
                     .start = *laptop_.processes().startTime(pid),
                     .part = part,
                     .born = tick,
                     .agentSince = part == Part::agent ? tick : 0});
  return pid;
}

Pid Cast::startApp(const AppKind& app, std::int64_t tick) {
  const double watts = random_.real(0.01, 0.8);
  const std::string path = std::string(app.path) + "/Contents/MacOS/" + app.name;
  return start(Part::application, {.path = path, .watts = watts, .cores = watts / 4}, tick);
}

Pid Cast::startAgent(std::int64_t tick) {
  const auto& kind = random_.pick(kAgents);
  MemoryProcess process{.path = kind[0], .arguments = {kind[0]}, .workingDirectory = "/home/anna/project"};
  if (*kind[1] != '\0') process.arguments.emplace_back(kind[1]);
  // From a shell in a terminal, from an application, or from nobody who can be seen.
  Pid parent = random_.chance(0.7) ? any(Part::shell) : random_.chance(0.6) ? any(Part::application) : 1;
  process.parent = parent == 0 ? 1 : parent;
  const Pid pid = start(Part::agent, std::move(process), tick);
  setBusy(actors_.back(), random_.chance(0.8));
  return pid;
}

Pid Cast::startTool(Pid parent, std::int64_t tick) {
  const char* const path = random_.pick(kTools);
  const double watts = random_.chance(0.5) ? random_.real(0.3, 3) : 0;
  return start(Part::tool, {.parent = parent, .path = path, .watts = watts, .cores = watts / 4}, tick);
}

void Cast::exit(Pid pid) {
  laptop_.processes().exit(pid);
  const auto mine = [&](const AssertionRecord& record) { return record.pid == pid; };
  if (std::ranges::any_of(laptop_.report().assertions, mine)) {
    laptop_.edit([&](LaptopReport& report) { std::erase_if(report.assertions, mine); });
  }
  std::erase_if(actors_, [&](const Actor& actor) { return actor.pid == pid; });
}

void Cast::setBusy(Actor& actor, bool busy) {
  actor.busy = busy;
  const double watts = busy ? random_.real(0.6, 3) : random_.real(0, 0.01);
  laptop_.processes().setRates(actor.pid, watts, watts / 4);
}

}  // namespace tovi::soak
