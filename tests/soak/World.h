// A laptop with a person, agents and applications, faults and deaths, all by one seed; and on it the application, as
// it ships. Time passes in ticks of two seconds, and in one go where the laptop sleeps.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "core/StateFiles.h"
#include "engine/Engine.h"
#include "platform/simulated/MemoryLaptop.h"
#include "relay/MemoryRelay.h"
#include "remote/RemoteCrypto.h"
#include "soak/Cast.h"
#include "soak/Random.h"
#include "soak/Story.h"

namespace tovi::soak {

// How much of everything there was: a soak in which nothing happens finds nothing.
struct Counts {
  std::int64_t ticks = 0, events = 0, operations = 0;
  std::int64_t closedSessions = 0, paused = 0, slowed = 0, pidsReused = 0, holds = 0, phone = 0;
  std::int64_t sleeps = 0, darkWakes = 0;
  std::int64_t faultPhases = 0, refused = 0, deaths = 0, deathsInForce = 0, helperDeaths = 0, powerLosses = 0;
  std::int64_t watchdogRestored = 0;

  struct Row {
    const char* name;
    std::int64_t Counts::*field;
    double perDay;  // at least, as a rule
  };
  static std::span<const Row> rows();  // all of them

  void add(const Counts& other);

  friend bool operator==(const Counts&, const Counts&) = default;
};

// The settings that keep the machine safe, as they were last accepted inside the program.
struct Accepted {
  int batteryFloor = 0;
  bool heatGuard = true;

  friend bool operator==(const Accepted&, const Accepted&) = default;

  // What must be kept at least, where the person has loosened something since.
  Accepted orLooser(const std::optional<Accepted>& other) const {
    if (!other) return *this;
    return {std::min(batteryFloor, other->batteryFloor), heatGuard && other->heatGuard};
  }
};

class World {
 public:
  static constexpr double kTick = 2;  // seconds

  // Called as soon as something has died, before anybody cleans up; or as soon as the application has ended in peace.
  using Look = std::function<void(World&)>;

  World(std::uint64_t seed, Look autopsy, Look farewell);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void tick();
  std::int64_t ticks() const { return ticks_; }
  double elapsed();  // seconds of life, asleep and switched off included

  void tell(std::string what);

  // For the events.
  void pass(double seconds);                      // time; survives whatever dies in it
  void inApp(const std::function<void()>& what);  // something that the application's process does
  void aside(const std::function<void()>& what);  // something that another process does
  void startApp();
  void killApp();
  void leaveApp();  // it is asked to end
  void hangApp(double seconds);
  void losePower();
  void moveLid(bool closed);
  void stepClock(double seconds);
  void orderCrash(int within);
  void setBattery();
  void startWorkOnce();

  // The application's process; null while none runs.
  Engine* engine() const { return app ? app->engine() : nullptr; }
  bool lidClosed();  // as far as it counts: not with another screen; worked out from the report alone
  bool inForce();    // something is changed, or could be
  bool settled(std::int64_t ticks) const { return !faulty && ticks_ - disturbed >= ticks; }

  Random random;
  Story story;
  Counts counts;
  MemoryLaptop laptop;
  StateFiles state{laptop.machine()};
  Cast cast{laptop, random};
  MemoryRelay relay{laptop.http(), laptop.clock()};
  std::unique_ptr<AppDelegate> app;

  // The phone's side of the pairing.
  SecretKey key;
  RemoteCrypto::Topics topics;
  std::string lastSealed;
  int phoneIds = 0;

  // What the person left: where everything goes back to.
  int powerMode = 0;
  bool autoBackup = true;
  double brightness = 0.8;

  // Power and heat.
  double charge = 80;  // percent
  bool charger = false;
  bool weakCharger = false;  // doesn't carry the load
  bool gaugeBroken = false;  // reports nothing, or nonsense

  // Faults.
  bool faulty = false;
  bool failing = false, refusing = false, filling = false, crashing = false;
  std::int64_t phaseEnds = 0;
  std::int64_t disturbed = 0;     // the tick of the last fault, death or start
  std::int64_t startedAt = 0;     // the tick of the application's last start
  std::int64_t lidMovedAt = 0;    // the tick in which the lid last moved
  std::int64_t transcriptAt = 0;  // the last tick in which an agent wrote its transcript
  std::int64_t failedAt = -1;     // the last tick in which single operations could fail
  std::int64_t hung = 0;          // the last tick in which the application had stood still

  Accepted accepted;                 // as recorded on the disk
  std::int64_t acceptedAt = 0;       // the tick in which that last changed
  std::optional<Accepted> loosened;  // by the person, in this run of the application
  bool waived = false;               // the battery limit, by the person, for this run of the application
  bool installed = true;
  double clockBehindBeat = 0;              // seconds that the clock was set back while none ran
  double clockBehindHolds = 0;             // likewise, of all that came between a loss of power and the next start
  double startedSince = 0;                 // elapsed() at the application's last start
  double awakeSince = 0;                   // elapsed() at the last wake
  bool calmSinceStart = false;             // no stretch of faults has touched this run of the application
  int unloads = 0;                         // of the watchdog's agent in this run of the application
  std::int64_t unloadedAt = 0;             // the tick of the last
  std::optional<std::string> wrongWithin;  // what was wrong after an operation, though perhaps not after its tick
  std::optional<double> appStarts;         // elapsed(), while none runs

 private:
  void changePhase();
  void startFaults();
  void stopFaults();
  void makeFaults();
  void died(const char* who);
  void afterLife();
  void runWatchdog();
  void drain();
  void slumber();
  void lookWithin();
  void wake(bool full);

  Look autopsy_, farewell_;
  bool powerWasLost_ = false;    // since the last start
  std::size_t effectsSeen_ = 0;  // of those done to processes
  std::int64_t ticks_ = 0;
  double slept_ = 0;  // seconds, asleep or switched off
  double nextWatchdog_ = 60;
  double nextDrain_ = 0;
  double drainedUpTo_ = 0;
  double lidMoves_ = 0;  // elapsed()
  int drowsy_ = 0;       // ticks with the lid shut and nothing that keeps the laptop awake
};

}  // namespace tovi::soak
