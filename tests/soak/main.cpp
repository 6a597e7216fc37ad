// Simulated days with faults, by seeds, on every processor. See scripts/soak.

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/Text.h"
#include "soak/Runner.h"

namespace tovi::soak {
namespace {

constexpr double kExpected = 10;  // so many without any isn't chance: the soak itself is broken

constexpr const char* kUsage =
    "tovi_soak [--seed N] [--days D | --seconds S] [--jobs J]\n"
    "  --seed N     the first seed; without it a new one\n"
    "  --days D     virtual days in all, ten for each seed; without it, ten\n"
    "  --seconds S  or for so long\n";

struct Options {
  std::uint64_t seed = std::random_device{}();
  double days = kDaysOfASeed;
  std::optional<double> seconds;
  int jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
};

std::optional<Options> optionsFrom(int count, char** words) {
  Options options;
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string_view name = words[i], value = words[i + 1];
    if (const auto number = text::decimal<double>(value); name == "--days" && number && *number > 0) {
      options.days = *number;
    } else if (name == "--seconds" && number && *number > 0) {
      options.seconds = *number;
    } else if (name == "--jobs" && number && *number >= 1 && *number <= 256) {
      options.jobs = static_cast<int>(*number);
    } else if (const auto seed = text::decimal<std::uint64_t>(value); name == "--seed" && seed) {
      options.seed = *seed;
    } else {
      return std::nullopt;
    }
  }
  return count % 2 == 1 ? std::optional{options} : std::nullopt;
}

// What one worker shows to the others, in memory that they share.
struct Slot {
  std::uint64_t seed = 0;
  volatile std::int64_t tick = 0;
  std::int64_t seeds = 0;
  double days = 0;
  Counts counts;
};

struct Board {
  volatile bool stop = false;
  Slot slots[256];
};

int work(const Options& options, int worker, Board& board, Clock::time_point deadline) {
  Slot& slot = board.slots[worker];
  const double wanted = options.seconds ? std::numeric_limits<double>::infinity() : options.days;
  for (std::uint64_t i = static_cast<std::uint64_t>(worker);; i += static_cast<std::uint64_t>(options.jobs)) {
    const double left = wanted - static_cast<double>(i) * kDaysOfASeed;
    if (left <= 0 || board.stop || Clock::now() >= deadline) return 0;
    slot.seed = options.seed + i;
    const Life life = live(slot.seed, std::min(left, kDaysOfASeed), deadline, &slot.tick);
    ++slot.seeds;
    slot.days += life.days;
    slot.counts.add(life.counts);
    if (!life.broken) continue;
    board.stop = true;
    fmt::print("\n{}", life.report);
    std::fflush(stdout);
    return 1;
  }
}

// A run that depends on anything but its seed would be worth little.
bool livesTheSameLifeTwice(std::uint64_t seed) {
  const auto never = Clock::time_point::max();
  const Life first = live(seed, 0.25, never), second = live(seed, 0.25, never);
  if (first.counts == second.counts && first.broken == second.broken) return true;
  fmt::print("seed {} didn't live the same life twice\n", seed);
  return false;
}

int run(const Options& options) {
  const auto begin = Clock::now();
  const auto deadline = options.seconds ? begin + std::chrono::duration_cast<Clock::duration>(Seconds{*options.seconds})
                                        : Clock::time_point::max();
  fmt::print("seed {}\n", options.seed);
  std::fflush(stdout);
  if (!livesTheSameLifeTwice(options.seed)) return 1;
  void* shared = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 1;
  Board& board = *new (shared) Board;
  std::vector<pid_t> workers;
  for (int i = 0; i < options.jobs; ++i) {
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      std::exit(work(options, i, board, deadline));
    }
    workers.push_back(pid);
  }
  bool failed = false;
  for (std::size_t i = 0; i < workers.size(); ++i) {
    int status = 0;
    if (workers[i] < 0 || waitpid(workers[i], &status, 0) < 0) return 1;
    if (status == 0) continue;
    failed = true;
    if (WIFSIGNALED(status) || WEXITSTATUS(status) > 1) {
      fmt::print("seed {} ended at tick {} with status {}\n", board.slots[i].seed,
                 static_cast<std::int64_t>(board.slots[i].tick), status);
    }
  }
  Slot sum;
  for (int i = 0; i < options.jobs; ++i) {
    sum.seeds += board.slots[i].seeds;
    sum.days += board.slots[i].days;
    sum.counts.add(board.slots[i].counts);
  }
  const double seconds = Seconds{Clock::now() - begin}.count();
  for (const Counts::Row& row : Counts::rows()) {
    const std::int64_t count = sum.counts.*row.field;
    fmt::print("  {:>10.1f} {} a day\n", static_cast<double>(count) / std::max(sum.days, 1e-9), row.name);
    if (count > 0 || row.perDay * sum.days < kExpected) continue;
    fmt::print("there were no {}\n", row.name);
    failed = true;
  }
  fmt::print("{} seeds, {:.1f} days in {:.1f} s: {:.2f} days/s\n", sum.seeds, sum.days, seconds, sum.days / seconds);
  fmt::print("{}\n", failed ? "BROKEN" : "every invariant held");
  return failed ? 1 : 0;
}

}  // namespace
}  // namespace tovi::soak

int main(int count, char** words) {
  setenv("TZ", "UTC0", 1);
  const auto options = tovi::soak::optionsFrom(count, words);
  if (!options) {
    std::fputs(tovi::soak::kUsage, stderr);
    return 2;
  }
  stderr = std::fopen("/dev/null", "w");  // what the program logs; a sanitizer writes to the descriptor itself
  return tovi::soak::run(*options);
}
