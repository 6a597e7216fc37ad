#include "safety/Heartbeat.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <tuple>
#include <vector>

#include "core/StateFiles.h"
#include "core/Text.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr char kAlive[] = "alive";

// A beat comes every few seconds, but none while the machine sleeps: a process that is known to be ours gets the
// time of a long nap. Without its identity a file's age is all there is, so it must be fresh. A beat of the future is
// as far off as one of the past: the clock was set back since.
constexpr double kIdentifiedLimit = 900;
constexpr double kAnonymousLimit = 90;

}  // namespace

void Heartbeat::beat(const Machine& machine, const StateFiles& state) {
  const double now = std::trunc(unixSeconds(machine.clock.now()));
  if (!(std::abs(now) < 9e18)) std::abort();  // no clock says this
  const Pid self = machine.processes.self();
  const Microseconds start = machine.processes.startTime(self).value_or(0);
  const std::string whose = fmt::format(" {} {}", self, start);
  const std::string beat = fmt::format("{}{}", static_cast<std::int64_t>(now), whose);
  // Replacing a file makes some file systems write to the disk at once, which would be every two seconds. Over our
  // own last beat only digits of the time change, in place.
  const auto last = state.read(kAlive);
  const bool isOurs = last && last->size() == beat.size() && last->ends_with(whose);
  if (isOurs && machine.files.write(state.path(kAlive), beat, Files::Sync::no)) return;
  if (state.writeAtomically(beat, state.path(kAlive))) return;
  // On a full disk at least its date goes along: one that lay in the future would keep the watchdog away.
  machine.files.setModified(state.path(kAlive), machine.clock.now());
}

bool Heartbeat::appIsAlive(const Machine& machine, const StateFiles& state) {
  const double now = unixSeconds(machine.clock.now());
  const auto content = state.read(kAlive);
  std::vector<std::uint64_t> numbers;
  if (content && isUtf8(*content)) {
    for (const std::string_view piece : text::pieces(*content, " ")) {
      if (const auto number = text::decimal<std::uint64_t>(piece)) numbers.push_back(*number);
    }
  }
  if (numbers.size() != 3) {
    const auto status = machine.files.status(state.path(kAlive));
    return std::abs(now - unixSeconds(status ? status->modified : kDistantPast)) < kAnonymousLimit;
  }
  const auto [time, pid, start] = std::tie(numbers[0], numbers[1], numbers[2]);
  if (start == 0 || pid > static_cast<std::uint64_t>(std::numeric_limits<Pid>::max())) return false;
  return machine.processes.startTime(static_cast<Pid>(pid)) == start &&
         std::abs(now - static_cast<double>(time)) < kIdentifiedLimit;
}

}  // namespace tovi
