// The processes of a world: agents with what they start, applications, and people who have nothing to do with either.
#pragma once

#include <string>
#include <vector>

#include "platform/simulated/MemoryLaptop.h"
#include "soak/Random.h"

namespace tovi::soak {

// An application that a person can have; each stands in the laptop's report, so that it has an identifier.
struct AppKind {
  const char* name;
  const char* bundle;
  const char* path;
};
extern const std::vector<AppKind> kAppKinds;

enum class Part { daemon, stranger, application, helper, shell, agent, tool, simulator };

struct Actor {
  Pid pid = 0;
  Microseconds start = 0;
  Part part = Part::daemon;
  std::int64_t born = 0;        // the tick in which it came
  std::int64_t agentSince = 0;  // of an agent: the tick in which it became one
  bool busy = false;            // draws enough to count as working
};

class Cast {
 public:
  // Far above the numbers that real processes have, since names of temporary files hold one of those.
  static constexpr Pid kFirst = 5'000'010;
  static constexpr int kNumbers = 400;  // handed out in a circle, so that each comes again soon

  Cast(MemoryLaptop& laptop, Random& random) : laptop_(laptop), random_(random) {}

  const std::vector<Actor>& all() const { return actors_; }
  std::vector<Actor>& all() { return actors_; }
  const Actor* find(Pid pid) const;
  Pid any(Part part);  // one of those at random; 0: there is none
  int count(Part part) const;

  Pid freePid();

  // `process.pid` 0: a free one; else whoever has it is replaced.
  Pid start(Part part, MemoryProcess process, std::int64_t tick);
  Pid startApp(const AppKind& app, std::int64_t tick);
  Pid startAgent(std::int64_t tick);
  Pid startTool(Pid parent, std::int64_t tick);
  void exit(Pid pid);
  void setBusy(Actor& actor, bool busy);
  void forgetAll() { actors_.clear(); }  // the machine went down

 private:
  MemoryLaptop& laptop_;
  Random& random_;
  std::vector<Actor> actors_;
  Pid next_ = kFirst;
};

}  // namespace tovi::soak
