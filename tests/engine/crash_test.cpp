// The process dies at every operation of a whole session, and at operations of the recovery too: whoever comes next,
// the laptop ends as it was.

#include <fmt/format.h>

#include <functional>

#include "engine/Desk.h"
#include "safety/Watchdog.h"

namespace tovi {
namespace {

using When = MemoryFaults::When;

struct Session : Desk {
  Session() : Desk(R"({"mode": "off", "preset": "longest", "screenOffNoLock": true, "slowBuildsWhileClosed": true})") {
    make = program("/usr/bin/make", claude);
  }

  Pid make;
  Pid reused = 0;  // a number that belonged to a process of before

  // All that is ever recorded and switched, from the start of the program to its end.
  void live() {
    start().addHold("training", 60, {}, {});
    lid(true);
    laptop.advance(34);
    engine().setPreset(Preset::balanced);
    laptop.advance(4);
    engine().setPreset(Preset::longest);
    laptop.advance(4);
    engine().releaseHold(std::nullopt);  // it falls asleep
    laptop.passAsleep(Seconds{600});
    lid(false);
    laptop.advance(12);
    engine().addHold("more", {}, {}, {});
    lid(true);
    laptop.advance(4);
    lid(false);
    engine().shutdown();
  }

  // Dies at the operation with this number of the session, counted from one; false if there are fewer.
  bool dieAt(std::int64_t number, When when) {
    laptop.faults().crashAt(laptop.faults().operations() + number, when);
    try {
      live();
    } catch (const Crash&) {
      return true;
    }
    return false;
  }

  // The old process is swept away. One that it had touched is gone too, and its number belongs to somebody else.
  void bury() {
    owned.reset();
    laptop.restart();
    reuse(notesHelper);
    reused = notesHelper;
    laptop.processes().forgetEffects();
  }

  void open() {
    laptop.edit([](LaptopReport& report) { report.lid = LaptopLid::open; });
  }

  // Nothing of what the old process did is left, and nothing was done to who came later.
  void expectWhole(const std::string& moment) {
    EXPECT_EQ(changed(), "") << moment;
    EXPECT_EQ(treatment(make), "normal") << moment;
    EXPECT_FALSE(sleepOff()) << moment;
    EXPECT_EQ(Watchdog::outstanding(laptop.machine(), state), std::vector<std::string>{}) << moment;
    for (const ProcessEffect& effect : laptop.processes().effects()) EXPECT_NE(effect.pid, reused) << moment;
    const auto before = laptop.faults().operations();
    EXPECT_EQ(Watchdog::run(laptop.machine(), state, true), "restored") << moment;
    EXPECT_EQ(laptop.faults().operations(), before) << moment << ": a second recovery still had something to do";
  }
};

std::int64_t operationsOfSession() {
  Session session;
  const auto before = session.laptop.faults().operations();
  session.live();
  session.expectWhole("without a crash");
  return session.laptop.faults().operations() - before;
}

// Who cleans up. Each leaves the laptop whole by itself; the request to stay awake is over or ended by the person.
struct Recovery {
  const char* name;
  std::function<void(Session&)> run;
};

void watchdogRuns(Session& session) {
  EXPECT_EQ(Watchdog::run(session.laptop.machine(), session.state, false), "restored");
}

void applicationStarts(Session& session) {
  session.open();
  session.start().releaseHold(std::nullopt);
  session.laptop.advance(45);  // a session that was interrupted is adopted for half a minute
}

// The lid is still shut: the session goes on where it was, until the person ends it.
void sessionGoesOn(Session& session) {
  session.start();
  session.laptop.advance(40);
  if (session.engine().holds->empty()) session.engine().addHold("again", {}, {}, {});
  session.lid(true);
  session.laptop.advance(2);
  EXPECT_TRUE(session.holds(true));
  // Whatever was last saved of the settings.
  EXPECT_EQ(session.treatment(session.notes), session.engine().config->preset == Preset::balanced ? "slow" : "paused");
  session.lid(false);
  session.engine().releaseHold(std::nullopt);
  session.laptop.advance(6);
}

const Recovery kRecoveries[] = {
    {"the watchdog", watchdogRuns},
    {"the application", applicationStarts},
    {"the watchdog, then the application",
     [](Session& session) {
       watchdogRuns(session);
       applicationStarts(session);
     }},
    {"the application, in the same session", sessionGoesOn},
};

class Crashes : public testing::TestWithParam<std::size_t> {};

TEST_P(Crashes, LeaveNothingBehind) {
  const Recovery& recovery = kRecoveries[GetParam()];
  const auto operations = operationsOfSession();
  ASSERT_GT(operations, 150);
  for (std::int64_t number = 1; number <= operations; ++number) {
    for (const When when : {When::before, When::after}) {
      Session session;
      ASSERT_TRUE(session.dieAt(number, when)) << number;
      const std::string moment = fmt::format("{}: died {} {}", recovery.name, when == When::before ? "before" : "after",
                                             session.laptop.faults().log().back());
      session.bury();
      recovery.run(session);
      session.expectWhole(moment);
      if (HasFailure()) return;
    }
  }
}

// A recovery that dies itself is mended by the next: at three of its own operations for each of the session's.
TEST_P(Crashes, OfARecoveryLeaveNothingBehind) {
  const Recovery& recovery = kRecoveries[GetParam()];
  const auto operations = operationsOfSession();
  for (std::int64_t number = 1; number <= operations; ++number) {
    for (const std::int64_t prime : {7, 31, 127}) {
      Session session;
      const When when = number % 2 == 0 ? When::before : When::after;
      ASSERT_TRUE(session.dieAt(number, when)) << number;
      session.bury();
      const auto at = 1 + number * prime % 40;
      session.laptop.faults().crashAt(session.laptop.faults().operations() + at, when);
      std::string moment = fmt::format("{}: died at operation {}", recovery.name, number);
      try {
        recovery.run(session);
        session.laptop.faults().forgetOrders();
      } catch (const Crash&) {
        moment += fmt::format(", then at operation {} of the recovery, {}", at, session.laptop.faults().log().back());
        session.owned.reset();
        session.laptop.restart();
        recovery.run(session);
      }
      session.expectWhole(moment);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, Crashes, testing::Range(std::size_t{0}, std::size(kRecoveries)));

// The power goes with the process: what wasn't synchronised is lost, and all processes are gone.
TEST(PowerLoss, LeavesNothingBehind) {
  const auto operations = operationsOfSession();
  for (std::int64_t number = 1; number <= operations; ++number) {
    for (const bool byWatchdog : {true, false}) {
      Session session;
      const When when = number % 2 == 0 ? When::before : When::after;
      ASSERT_TRUE(session.dieAt(number, when)) << number;
      const std::string moment = fmt::format("operation {}, {}", number, session.laptop.faults().log().back());
      session.owned.reset();
      session.laptop.powerLoss(Seconds{100});  // a beat whose text is lost counts for a minute and a half
      session.open();
      byWatchdog ? watchdogRuns(session) : applicationStarts(session);
      EXPECT_FALSE(session.sleepOff()) << moment;
      EXPECT_EQ(Watchdog::outstanding(session.laptop.machine(), session.state), std::vector<std::string>{}) << moment;
      const LaptopSwitches& switches = session.laptop.switches();
      EXPECT_EQ(switches.batteryMode.at("lowpowermode"), 0) << moment;
      EXPECT_TRUE(switches.autoBackup) << moment;
      EXPECT_TRUE(switches.display(1).enabled) << moment;
      EXPECT_DOUBLE_EQ(switches.display(1).brightness, 0.8) << moment;
      if (HasFailure()) return;
    }
  }
}

}  // namespace
}  // namespace tovi
