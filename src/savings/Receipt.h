// The record of one session with the lid closed, shown to the person when it opens.
#pragma once

#include <optional>
#include <string>

#include "platform/Types.h"

namespace tovi {

struct Receipt {
  Date closedAt;
  std::optional<Date> openedAt;
  std::optional<Date> sleepRequestedAt;     // when the machine was let go to sleep
  std::optional<Date> sleptAt;              // when it went
  std::optional<std::string> sleptBecause;  // in words for the person
  std::optional<int> startPercent;          // battery at closing
  std::optional<int> endPercent;            // battery at the end
  std::optional<std::string> agentName;     // who it was for

  friend bool operator==(const Receipt&, const Receipt&) = default;
};

}  // namespace tovi
