// Requests to stay awake: those that other programs hold, and our own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

// One power assertion. A value that is missing or of another type is absent.
struct AssertionRecord {
  Pid pid = 0;                             // the process that holds it
  std::optional<std::string> processName;  // "Process Name"
  std::optional<std::string> trueType;     // "AssertionTrueType"
  std::optional<std::string> type;         // "AssertType"
  std::optional<std::string> name;         // "AssertName"
  std::optional<Date> startedAt;           // "AssertStartWhen"
  std::optional<Pid> onBehalfOf;           // "AssertionOnBehalfOfPID"
  std::vector<std::string> resourcesUsed;  // "ResourcesUsed"
};

class Assertions {
 public:
  virtual ~Assertions() = default;

  virtual std::vector<AssertionRecord> all() = 0;  // empty also if they can't be read

  // Keeps the screen from sleeping; 0 is failure, anything else names the assertion for release().
  virtual std::uint32_t holdDisplayAwake(const std::string& name) = 0;
  virtual bool release(std::uint32_t assertion) = 0;  // false: it still stands

  // Tells the system that this process does something the person asked for, so that it isn't napped.
  enum class Activity { allowingIdleSystemSleep, preventingIdleSystemSleep };
  virtual Registration beginActivity(Activity activity, const std::string& reason) = 0;
};

}  // namespace tovi
