// What the closed-lid savings are worth on this machine, measured: which savings are compared, what four readings of
// the whole machine's draw say together, and when a reading may be trusted. The engine switches and polls.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "observe/Sensors.h"

namespace tovi {

struct Config;

namespace PowerTest {

// The savings by their keys, in the order in which they are measured. "screen" lets the display sleep, which locks
// the session; "screen_off" switches it off without that.
inline constexpr std::array<std::string_view, 6> kSavings{"apps",      "simulators", "audio",
                                                          "low_power", "screen_off", "screen"};

// Those that are switched by touching other programs.
inline constexpr std::array<std::string_view, 3> kProcessSavings{"apps", "simulators", "audio"};

struct Choice {
  bool includeScreen = false;
  bool lockOnClose = false;
  bool screenOffNoLock = false;
  bool canSwitchScreen = false;
  std::optional<int> passwordDelay = {};  // seconds; absent: nobody knows
};

std::vector<std::string> keysFor(const Choice& choice);

// As it is called in progress lines; an unknown key is its own name.
std::string stepName(std::string_view key);

// Whether the closed lid has this saving on by the person's settings. `screenOff`: the screen is switched off now.
bool savingOn(std::string_view key, const Config& config, bool screenOff);

// Off, on, off, on: twice, so that a load that moves by itself shows.
constexpr int kTotalSteps = 4;
constexpr int kStepsPerSaving = 2;

int stepCount(std::size_t savings);  // with so many measured on their own
std::string totalProgress(int step, int steps);
std::string detailProgress(std::string_view key, int step, int steps);

struct Total {
  double closedWithout = 0;      // mean watts with all savings off
  double closedWith = 0;         // and on
  std::optional<double> saving;  // the smaller of the two differences, at least 0; absent: they don't agree

  friend bool operator==(const Total&, const Total&) = default;
};

Total totalOf(const std::array<double, kTotalSteps>& readings);

double savingOf(double off, double on);  // at least 0

// Why a test ended early.
inline constexpr char kLidOpened[] = "the lid was opened";
inline constexpr char kHoldEnded[] = "Tovi stopped keeping the Mac awake";
inline constexpr char kNoReadings[] = "the battery controller stopped reporting power";

// One reading: the mean over one whole update of the power controller, from samples a second apart. The update under
// way when it begins is left out, for it began before what was switched took effect.
class Reading {
 public:
  // `start`: a sample from just after switching.
  explicit Reading(const std::optional<PowerSample>& start) : startCount_(start ? start->count : std::nullopt) {}

  struct Verdict {
    bool ended = false;
    std::optional<double> watts;  // absent if it ended: there will be none
  };
  Verdict take(const std::optional<PowerSample>& sample);

 private:
  std::optional<std::int64_t> startCount_;
  std::optional<PowerSample> first_;  // where a fresh update began
  int attempts_ = 0;
};

}  // namespace PowerTest
}  // namespace tovi
