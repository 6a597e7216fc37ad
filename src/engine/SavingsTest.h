// What slowing the other applications saved in a measurement of a few seconds, by their own energy counters.
#pragma once

#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

struct SavingsTest {
  struct App {
    std::string name;
    double before = 0;  // watts
    double after = 0;

    friend bool operator==(const App&, const App&) = default;
  };

  double before = 0;  // watts of all of them
  double after = 0;
  std::vector<App> apps;  // most watts before first
  Date date;              // its end

  friend bool operator==(const SavingsTest&, const SavingsTest&) = default;
};

}  // namespace tovi
