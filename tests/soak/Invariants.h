// What must hold in every world, as one table, looked at after every tick and at the moment of every death.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "soak/World.h"

namespace tovi::soak {

// Thrown by the first look that finds one broken.
struct Broken {
  std::string invariant;
  std::string how;
};

class Invariants {
 public:
  Invariants();

  void afterTick(World& world);
  void atDeath(World& world);
  void atFarewell(World& world);

  // What is remembered of a world from one look to the next.
  struct Memory {
    struct Hold {
      std::optional<double> end;  // World::elapsed()
      std::optional<Microseconds> pidStart, ownerStart;
      bool gone = false;
    };
    std::map<std::string, Hold> holds;  // by id
    struct Touch {
      bool paused = false;
      std::string path;  // as it was then
    };
    std::map<std::pair<Pid, Microseconds>, Touch> inOurHands;  // paused or slowed by the application, and not put back
    double reasonSeen = 0;       // World::elapsed(); when there was last one to stay awake
    std::int64_t busySince = 0;  // the tick since which an agent has worked; 0: none does
    double shortSince = 0;       // seconds awake; since when what follows has been the same
    std::pair<std::optional<Date>, std::optional<Date>> shortStays;  // a check-in's end, an adopted hold's end
    std::int64_t hotSince = 0;  // likewise, of serious heat with the lid shut; 0: it isn't
    double avoidedWh = 0;
    std::int64_t avoidedOf = 0;  // the run of the application that counts it
    // As this look found it.
    std::set<std::string, std::less<>> records;  // files in the state folder that stand for something in force
    std::vector<std::pair<const Actor*, const MemoryProcess*>> touched;  // who is stopped or slow, strangers left out
    std::optional<std::string> safetyText;
    std::optional<Accepted> record;          // of what is accepted
    std::optional<std::string> wrongSignal;  // what was found while going through them
  };

 private:
  std::vector<int> badFor_;  // ticks, by row
  Memory memory_;

  void remember(World& world);
  void look(World& world, bool death);
  void takeOver(World& world);  // what is on record is what counts from now on
};

}  // namespace tovi::soak
