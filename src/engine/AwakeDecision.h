// The decision that everything else serves: should this machine stay awake, why, and may it? Pure functions over
// readings; the engine reads, asks them, and acts.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/Config.h"
#include "observe/AgentSession.h"
#include "observe/Sensors.h"
#include "platform/PowerRegistry.h"

namespace tovi {

// A moment at which somebody was seen, and who.
struct Sighting {
  Date at;
  std::string name;

  friend bool operator==(const Sighting&, const Sighting&) = default;
};

// An agent counts as working while its last evidence of work is younger than this.
constexpr double kWorkingSeconds = 20;

// The session that justifies staying awake: the first, in order, that counts and hasn't been quiet for too long;
// null if none does.
const AgentSession* activeAgent(const std::vector<AgentSession>& sessions, const Config& config, Date now);

// "Claude Code is working", "Xcode is busy", "HandBrake asked to stay awake".
std::string describe(const AgentSession& session);

// Why work keeps the machine awake, the grace after its end included; absent: no reason. `lastWork` and `lastSeen`:
// when an agent last showed activity, and last existed at all.
std::optional<std::string> workReason(const std::vector<AgentSession>& sessions, const Config& config,
                                      const std::optional<Sighting>& lastWork, const std::optional<Sighting>& lastSeen,
                                      Date now);

struct AwakeReadings {
  Date now;
  Mode mode = Mode::automatic;
  std::optional<std::string> lastHoldReason;  // of the newest explicit hold
  bool snoozed = false;
  std::optional<std::string> workReason;
  std::optional<Date> onUntil;  // end of a timed Always
  bool onlyOnPower = false;
  int batteryFloor = 0;
  bool heatGuard = true;
  std::optional<BatteryReading> battery;
  bool floorOverride = false;
  bool lidClosed = false;
  ThermalState thermal = ThermalState::nominal;
  // What the last decision left behind.
  bool floorLatched = false;
  std::optional<Date> hotSince;
};

struct AwakeVerdict {
  bool wants = false;  // before safety
  std::optional<std::string> reason;
  bool allowed = false;                      // wanted, and safety agrees
  std::optional<std::string> blockedReason;  // what safety said
  bool floorLatched = false;
  std::optional<Date> hotSince;

  friend bool operator==(const AwakeVerdict&, const AwakeVerdict&) = default;
};

AwakeVerdict decideAwake(const AwakeReadings& readings);

// Running off the battery: no charger, or one too weak to carry the load.
bool onBattery(const std::optional<BatteryReading>& battery);

// A floor that was reached holds until the battery has recovered by this much.
constexpr int kFloorRecovery = 3;  // percent

}  // namespace tovi
