// The account of what sessions with the lid closed saved: the last 400 of them, and totals that outlive those.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Types.h"

namespace tovi {

class StateFiles;

struct SavingsStats {
  struct Session {
    Date date;                 // when the lid closed
    double closedMinutes = 0;  // closed and awake
    double whSaved = 0;        // not spent while awake
    double sleptMinutes = 0;   // asleep with the lid closed
    double whAvoided = 0;      // not spent because it slept
    std::optional<int> startPercent;
    std::optional<int> endPercent;
    std::optional<std::string> agent;

    friend bool operator==(const Session&, const Session&) = default;
  };

  struct Week {
    double wh = 0;
    double whAvoided = 0;
    double sleptMinutes = 0;
    double closedMinutes = 0;
    int count = 0;

    friend bool operator==(const Week&, const Week&) = default;
  };

  std::vector<Session> sessions;  // oldest first
  double allTimeWhSaved = 0;
  double allTimeWhAvoided = 0;

  friend bool operator==(const SavingsStats&, const SavingsStats&) = default;

  // Empty if the file is missing or any required field of it doesn't decode.
  static SavingsStats load(const StateFiles& state);

  void add(Session session);  // to be saved afterwards
  Week week(Date now) const;  // the last seven days
  bool save(const StateFiles& state) const;
};

}  // namespace tovi
