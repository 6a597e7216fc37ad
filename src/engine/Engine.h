// The one object that knows what the machine is doing and decides what to do about it. Every two seconds it reads
// the world, decides whether the machine stays awake, and carries out the regime of the closed lid; everything
// that changes the machine goes through it. One source file per topic.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/Config.h"
#include "core/ConfigWatcher.h"
#include "core/DelayedCalls.h"
#include "core/Field.h"
#include "core/Hold.h"
#include "core/Shell.h"
#include "core/StateFiles.h"
#include "engine/AwakeDecision.h"
#include "engine/ClosedTarget.h"
#include "engine/SavingsTest.h"
#include "observe/AgentWatcher.h"
#include "observe/AppUsage.h"
#include "observe/BackgroundWork.h"
#include "observe/EnergySampler.h"
#include "observe/Sensors.h"
#include "platform/Files.h"
#include "platform/Machine.h"
#include "platform/PowerRegistry.h"
#include "safety/Journal.h"
#include "safety/Setup.h"
#include "savings/Receipt.h"
#include "savings/SavingsStats.h"

namespace tovi {

namespace PowerTest {
class Reading;
}
struct ClosedPlanRow;
struct LidOutcome;
struct ReportReadings;
struct WeekSummary;

class Engine {
 public:
  using Announce = std::function<void(const std::string& title, const std::string& body)>;

  // A passive engine is a read-only picture: it changes nothing on the machine and has no timer.
  Engine(const Machine& machine, bool passive);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Puts new settings into effect; does nothing if they equal the present ones. With `save` they are written to
  // config.json, and safety settings become the accepted ones: for changes made inside the program.
  void apply(Config config, bool save);

  // A battery, agent and energy sample at once, and a fresh look at the set-up in the background.
  void refreshFast();
  void reloadConfigIfEdited();  // lest a change that comes now overwrite an edit that nobody has looked at yet

  // A fresh energy sample, one second long, then the call.
  void sampleEnergyNow(std::function<void()> then);

  // Gives everything back at the end of the process.
  void shutdown();

  // One turn of the loop; the engine's own timer calls it every two seconds.
  void tick();

  // Recomputes the decision; may start or end the hold.
  void evaluate();

  // Requests. Each changes state and lets evaluate() decide; none can fail.
  Hold addHold(const std::string& reason, std::optional<double> minutes, std::optional<Pid> pid,
               std::optional<Pid> owner);
  int releaseHold(const std::optional<std::string>& id);  // nothing: all; the number removed
  int releaseHolds(Pid ownedBy, const std::optional<std::string>& id = {});
  void stayAwake(std::optional<int> minutes);
  void stayAwake(Date until);
  void sleepNow();
  void overrideFloor(bool flag);
  void setKeepsAwake(const std::string& kindId, bool flag);
  void addWatched(const WatchedApp& app);
  void removeWatched(const WatchedApp& app);
  void setRule(AppRule rule, const std::string& bundle);
  void setPreset(Preset preset);
  void setWake(std::optional<Date> at, std::optional<int> forMinutes);
  void setCheckIn(int minutes);

  // Lid and closed state.
  void lidChanged(bool closed);
  void enterClosed();
  void reapplyClosedState(std::optional<Preset> forcing);
  void restoreClosedState();
  void switchScreenOff();
  void setLowPower();
  void restorePowerMode();
  bool lowPowerSet() const;

  // What is done to other applications with the lid closed. `skip`: classes left out, of "apps", "builds",
  // "simulators" and "audio".
  using Skip = std::set<std::string>;
  AppRule rule(const std::optional<std::string>& bundle, Preset preset) const;
  ClosedTargets closedTargets(Preset preset, const Skip& skip);
  void applyClosedTargets(std::optional<Preset> preset, const Skip& skip);
  void restoreApps();
  bool isProtected(const AppUsage& app) const;
  std::vector<AppUsage> userApps() const;
  static bool isSystemApp(const std::string& path);

  // What the savings are worth. The power test takes minutes, with the lid closed; nothing if it has started, else
  // the sentence that says why not. measureSavings() takes seven seconds, with the lid open, and fills `lastTest`.
  std::optional<std::string> startPowerTest(bool includeScreen, bool detailed);
  void measureSavings();

  // Set-up.
  void runSetup(std::function<void()> then = {});  // the outcome stands in setupReady and setupError
  SetupError uninstallHelper();

  // Sleep and wake.
  void macWillSleep();
  void poweredOn();

  // Reports.
  const AgentSession* activeAgent() const;
  std::optional<std::string> workReason() const;
  std::optional<Date> onUntil() const;
  bool blockedByFloor() const;
  std::string statusLine() const;
  std::string modeLine() const;
  std::optional<std::string> batteryLine() const;
  LidOutcome lidOutcome() const;
  std::optional<double> sleepsIn(const AgentSession& session) const;  // seconds until its quiet time ends
  std::optional<double> hoursLeft(std::optional<double> watts) const;
  std::optional<double> openWatts() const;  // usual with the lid open, or present if it is
  double closedEstimate() const;            // watts to expect with the lid shut
  std::vector<ClosedPlanRow> closedPlan() const;
  double alwaysLeft() const;  // seconds; 0 without an end
  std::optional<std::string> menuBarTitle() const;
  std::string receiptLine(const Receipt& receipt) const;
  std::optional<Receipt> recentReceipt() const;
  std::optional<WeekSummary> weekSummary() const;
  std::map<std::string, std::string> phoneFigures() const;
  nlohmann::json panelJSON() const;
  nlohmann::json powerReport() const;
  std::vector<std::string> unrestored() const;  // programs that couldn't be put back yet

  const Machine& machine() const { return machine_; }
  const StateFiles& state() const { return state_; }
  Shell shell() const { return Shell{machine_.commands}; }
  Setup setup() const { return Setup{machine_, state_}; }
  Date now() const;
  bool previewOnly() const { return previewOnly_; }

  // Settings and requests.
  Field<Config> config;
  Field<std::vector<Hold>> holds;  // oldest first
  Field<bool> setupReady;
  Field<std::optional<std::string>> setupError;

  // Machine state.
  Field<bool> lidClosed;
  Field<std::optional<BatteryReading>> battery;
  Field<bool> holding;  // sleep is switched off by this engine
  std::optional<Date> checkInUntil;
  Field<bool> wakeReady;
  Field<std::optional<Date>> nextWakeAt;
  std::function<void()> onCheckIn;
  Field<std::optional<std::string>> holdReason;     // why the machine is or should be awake
  Field<std::optional<std::string>> blockedReason;  // why a wanted hold is refused
  Field<std::vector<AgentSession>> sessions;
  Field<std::vector<SleepBlocker>> blockers;
  Field<std::vector<AppUsage>> apps;  // the first 60 of the last energy sample
  Field<ThermalState> thermal;

  // Savings and measurement.
  Field<std::optional<Receipt>> receipt;
  Field<double> fullWh;  // energy of the full battery
  Field<bool> panelOpen;
  Field<SavingsStats> stats;
  Field<double> liveSavingW;
  Field<double> sessionWh;
  Field<std::optional<SavingsTest>> lastTest;
  Field<bool> measuring;
  Field<std::map<std::string, AppRule>> targeted;  // by application path
  std::map<std::string, double> baseline;          // usual watts by application path
  std::optional<Date> lastSavingSample;
  std::optional<std::pair<Date, double>> sleepInfo;  // when sleep was asked for, and the draw then
  Field<std::optional<double>> openDraw;
  std::optional<double> openDrawAtClose;
  Field<std::optional<double>> systemWatts;
  std::optional<PowerSample> lastPowerSample;
  Field<std::optional<double>> closedDraw;
  Field<BackgroundWork::Found> background;
  Field<std::map<std::string, double>> powerEffects;
  Field<bool> powerTestRunning;
  Field<std::optional<std::string>> powerTestProgress;  // its present step
  Field<std::set<std::string>> powerUnclear;
  Announce onAnnounce;

  // Working state that surfaces and tests look at.
  std::int64_t ticks = 0;
  Field<std::vector<Touched>> touched;  // processes now slowed or paused
  std::optional<Sighting> lastWork;
  std::optional<Sighting> lastSeen;
  Field<bool> snoozed;
  Field<std::optional<std::string>> warning;
  Field<std::optional<std::string>> remoteStatus;
  std::int64_t sleepRetries = 0;
  Field<bool> floorLatched;
  Field<bool> floorOverride;
  Field<bool> wantsHold;
  std::optional<bool> lastOnAC;
  std::vector<std::pair<std::string, std::string>> pendingNotes;
  Announce onNote;
  std::map<std::string, Date> workingSince;
  std::map<std::string, std::pair<Date, Date>> idlePending;  // since, quietAt
  std::map<std::string, std::string> finishedNames;
  std::function<void(const std::string& name, double minutes, bool gone)> onFinished;
  bool heatForced = false;
  std::optional<Date> hotSince;
  bool pendingRelease = false;
  std::optional<Date> holdFailedAt;
  bool screenOff = false;
  std::optional<Date> adoptedHoldUntil;
  bool screenStepRan = false;                          // of the power test
  Field<std::optional<std::string>> powerTestAborted;  // why the last one ended early

 private:
  // Start and loop.
  void followClock();
  void moveRequests(double by);
  void settleClock(const nlohmann::json* record);
  double clockOffset() const;
  double bootMark() const;
  void readStored();
  void startWatching();
  void sampleWatchers();
  void sampleEnergy();
  void readBattery();
  void darkenScreen();
  bool sleepIsAwaited() const;  // a session's end asked for sleep, and retrySleep() will ask again
  void retrySleep();
  void repairClosedState();
  void repairScreen();
  void retryRelease();
  void keepApps(std::vector<AppUsage> sampled);

  // Awake.
  AwakeReadings awakeReadings() const;
  bool expireAlways();
  void expireHolds();
  bool ownerLives(const Hold& hold) const;
  bool holdStands(const Hold& hold, Date now) const;
  void startHold(const std::optional<std::string>& reason);
  void endHold(const std::string& because);
  void relieveHeat();
  void settleAdoptedHold();
  void announce(const std::string& title, const std::string& body);
  void note(const std::string& title, const std::string& body);
  bool switchSleepOff();
  bool switchSleepOn();
  void raiseWarning(const std::string& text);
  void clearWarning(std::string_view text);
  void settleWarning();
  bool warningStillTrue() const;

  // Closed state.
  void holdDisplayAwake(bool flag);
  std::unordered_set<Pid> protectedPidSet(const ProcessTable& table) const;

  // Finished work and savings.
  void detectFinished();
  void finishSession(Date openedAt);
  void saveStats();
  void updateBaseline();
  void accumulateSavings();

  // The power test. A map says which savings are on, by key.
  using SavingKeys = std::vector<std::string>;
  using SavingStates = std::map<std::string, bool, std::less<>>;
  struct PowerTestRun;
  void runTotalTest(const SavingKeys& keys, const SavingKeys& then);
  void measureTotalStep();
  void runDetailStep(std::size_t next);  // of the keys to be measured on their own
  void measureDetail(std::size_t at, bool on, std::function<void(double)> done);
  void forgetSaving(const std::string& key);
  void setSavings(const SavingStates& states);
  bool savingOn(std::string_view key) const;
  // Watts; where there are none to be had the test ends instead.
  void cleanReading(std::function<void(double)> done);
  void pollReading(std::shared_ptr<PowerTest::Reading> reading, std::function<void(double)> done);
  bool canGoOnMeasuring() const;
  void abortPowerTest();
  void endPowerTest(std::optional<std::string> aborted);

  // Reports.
  ReportReadings reportReadings() const;
  nlohmann::json watchCandidates() const;
  bool powerCounted() const;  // the controller counts what the whole machine draws

  // Safety, persistence, recovery.
  void enforceSafety();
  void saveRuntime();
  void restoreRuntime();
  void recoverFromCrash();
  void configFileChanged();
  void sweepLeftovers();
  void settleSwitch();
  void checkWatchdog();
  void watchdogSeen(bool loaded);
  void setupSeen(bool ready, bool wakes);

  // Sleep and wake.
  void scheduleWake();
  void endCheckIn();

  // A call that is dropped if the engine is gone by then: for results of work off the main thread.
  template <class Call>
  auto whileAlive(Call call) {
    return [watch = std::weak_ptr<const bool>(alive_), call = std::move(call)](const auto&... results) {
      if (!watch.expired()) call(results...);
    };
  }

  const Machine machine_;
  StateFiles state_;
  const bool previewOnly_;
  std::optional<Date> bootTime_;
  AgentWatcher watcher_;
  EnergySampler sampler_;
  ConfigWatcher configWatcher_;
  std::optional<FileStatus> configStatus_;  // of config.json as last looked at
  std::optional<double> clockAhead_;        // of the time since boot, at the last look; seconds
  bool watchdogRepairTried_ = false;
  bool settingUp_ = false;
  bool statsUnsaved_ = false;                // the statistics couldn't be written
  bool runtimeUnsaved_ = false;              // nor the requests: one that was released would come back
  std::shared_ptr<PowerTestRun> powerTest_;  // while it runs
  std::uint32_t displayAssertion_ = 0;
  int screenSwitches_ = 0;  // counts closings, so that a late look at the lock knows its own
  Registration activity_;
  Registration checkInActivity_;
  Registration lidPoll_;
  Registration lidWatcher_;
  Registration timer_;
  std::vector<Registration> observers_;
  DelayedCalls delayed_;
  std::shared_ptr<const bool> alive_;
};

// Wherever a sleep is asked for, the next wake is one of the five steps that the privileged rule allows.
namespace WakePlan {
// Seconds from now, of 3600, 1800, 900, 300 and 60; absent: no wake at all. `untilWake`: seconds to the scheduled
// wake, if there is one; `checkInMinutes`: 0 for none.
std::optional<int> nextStep(std::optional<double> untilWake, int checkInMinutes);
}  // namespace WakePlan

}  // namespace tovi
