// A program's request to stay awake, as a person would take it: real work being done by an application.
#pragma once

#include <string>

#include "platform/Types.h"

namespace tovi {

struct SleepBlocker {
  Pid pid = 0;          // on whose behalf it is held
  std::string process;  // display name
  std::string name;     // the request's name; its type if it has none
  Date since;
  bool sinceUnknown = false;  // `since` is only the moment of reading

  std::string identity() const;  // pid, "-", name

  friend bool operator==(const SleepBlocker&, const SleepBlocker&) = default;
};

}  // namespace tovi
