#include "soak/Runner.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>

#include "soak/Invariants.h"

namespace tovi::soak {

namespace {

constexpr std::int64_t kOperationsShown = 60;

// Signs of life, which would push everything else out.
bool isRoutine(std::string_view operation) {
  return operation.ends_with("/alive") || (operation.starts_with("touch") && operation.ends_with("/hold"));
}

std::string timeOf(double seconds) {
  const auto whole = static_cast<long long>(seconds);
  return fmt::format("day {}, {:02}:{:02}:{:02}", whole / 86400 + 1, whole / 3600 % 24, whole / 60 % 60, whole % 60);
}

std::string reportOf(World& world, std::uint64_t seed, const std::string& invariant, const std::string& how) {
  std::string text = fmt::format("BROKEN: {}\n  {}\n  seed {}, tick {} ({})\n\nWhat happened last:\n", invariant, how,
                                 seed, world.ticks(), timeOf(world.elapsed()));
  const std::int64_t end = world.laptop.faults().operations();
  std::int64_t from = std::max<std::int64_t>(1, end - kOperationsShown * 4);
  const std::vector<std::string> operations = world.laptop.faults().log(from);
  from = end - static_cast<std::int64_t>(operations.size()) + 1;
  auto told = world.story.last().begin();
  const auto tellUpTo = [&](std::int64_t number) {
    for (; told != world.story.last().end() && told->operations < number; ++told) {
      text += fmt::format("{:>8}  {}\n", told->tick, told->what);
    }
  };
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const std::int64_t number = from + static_cast<std::int64_t>(i);
    tellUpTo(number);
    if (!isRoutine(operations[i])) text += fmt::format("              {}  {}\n", number, operations[i]);
  }
  tellUpTo(end + 1);
  return text + fmt::format("\nThe same again: scripts/soak --seed {}\n", seed);
}

}  // namespace

Life live(std::uint64_t seed, double days, Clock::time_point deadline, volatile std::int64_t* tick) {
  Life life;
  Invariants invariants;
  std::optional<World> world;
  const auto breaks = [&](const std::string& invariant, const std::string& how) {
    life.broken = invariant;
    life.report = world ? reportOf(*world, seed, invariant, how) : invariant + ": " + how;
  };
  try {
    world.emplace(
        seed, [&](World& dead) { invariants.atDeath(dead); }, [&](World& left) { invariants.atFarewell(left); });
    while (world->elapsed() < days * 86400) {
      if (world->ticks() % 256 == 0 && Clock::now() >= deadline) break;
      world->tick();
      invariants.afterTick(*world);
      if (tick != nullptr) *tick = world->ticks();
    }
  } catch (const Broken& broken) {
    breaks(broken.invariant, broken.how);
  } catch (const Crash& crash) {
    breaks("the soak itself", fmt::format("a death at operation {} belongs to nobody", crash.operation));
  } catch (const std::exception& error) {
    breaks("an exception came out", error.what());
  }
  if (!world) return life;
  life.days = world->elapsed() / 86400;
  life.counts = world->counts;
  return life;
}

}  // namespace tovi::soak
