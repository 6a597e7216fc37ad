// Takes one guard after the other out of a copy of the program, and shows which invariant notices, and how soon.

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string_view>

#include "core/Guard.h"
#include "core/Text.h"
#include "soak/Runner.h"

namespace tovi {

namespace {
std::optional<Guard> removed;
}

bool without(Guard guard) { return guard == removed; }

namespace soak {
namespace {

struct Mutation {
  Guard guard;
  const char* name;
};

constexpr Mutation kMutations[] = {
    {Guard::markerFirst, "sleep is switched off without a marker"},
    {Guard::markerUntilReleased, "a refused release drops its marker"},
    {Guard::markerUntilRescued, "the watchdog's refused release drops the marker"},
    {Guard::holdEnd, "a hold goes on after its time"},
    {Guard::holdProcess, "a hold goes on after its process"},
    {Guard::clockFollowed, "a step of the clock moves nothing along"},
    {Guard::batteryLimit, "the battery limit ends nothing"},
    {Guard::heat, "heat ends nothing"},
    {Guard::safetyAccepted, "an edit of the file lowers the battery limit"},
    {Guard::journalFirst, "a process is touched without the journal"},
    {Guard::journalUntilUndone, "who couldn't be put back is struck off the journal"},
    {Guard::shield, "an application of an agent's is touched"},
    {Guard::repair, "what couldn't be put back isn't tried again"},
    {Guard::brightnessOfThePerson, "the person's brightness is overwritten"},
    {Guard::counters, "counters that run backwards give a figure"},
};

struct Finding {
  bool found = false;
  double days = 0;
  std::uint64_t seed = 0;
  char invariant[80] = {};
};

// In a process of its own, so that one that goes astray takes nothing with it.
Finding search(const Mutation& mutation, std::uint64_t seed, double limit) {
  void* shared = mmap(nullptr, sizeof(Finding), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return {};
  Finding& finding = *new (shared) Finding;
  const pid_t pid = fork();
  if (pid == 0) {
    removed = mutation.guard;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds{limit});
    while (Clock::now() < deadline) {
      finding.seed = seed;
      const Life life = live(seed++, kDaysOfASeed, deadline);
      finding.days += life.days;
      if (!life.broken) continue;
      std::strncpy(finding.invariant, life.broken->c_str(), sizeof finding.invariant - 1);
      // The same life with the guard in its place must be a good one.
      removed.reset();
      finding.found = !live(finding.seed, life.days, Clock::time_point::max()).broken;
      break;
    }
    std::_Exit(0);
  }
  if (pid > 0) waitpid(pid, nullptr, 0);
  const Finding result = finding;
  munmap(shared, sizeof(Finding));
  return result;
}

int searchAll(std::uint64_t seed, double limit) {
  fmt::print("seed {}\n{:<52} {:>8} {:>7}  {}\n", seed, "without the guard", "seconds", "days", "is found by");
  int missed = 0;
  for (const Mutation& mutation : kMutations) {
    const auto begin = Clock::now();
    const Finding finding = search(mutation, seed, limit);
    missed += finding.found ? 0 : 1;
    fmt::print("{:<52} {:>8.1f} {:>7.1f}  {}\n", mutation.name, Seconds{Clock::now() - begin}.count(), finding.days,
               finding.found ? finding.invariant : "NOTHING");
    std::fflush(stdout);
  }
  return missed == 0 ? 0 : 1;
}

}  // namespace
}  // namespace soak
}  // namespace tovi

int main(int count, char** words) {
  setenv("TZ", "UTC0", 1);
  std::uint64_t seed = std::random_device{}();
  double limit = 60;  // seconds for each
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string_view name = words[i];
    if (name == "--each") limit = tovi::text::decimal<double>(words[i + 1]).value_or(limit);
    if (name == "--seed") seed = tovi::text::decimal<std::uint64_t>(words[i + 1]).value_or(seed);
  }
  stderr = std::fopen("/dev/null", "w");  // what the program logs
  return tovi::soak::searchAll(seed, limit);
}
