#include "commands/PanelFormatTime.h"

#include <algorithm>

#include "core/Dates.h"

namespace tovi {

Date PanelFormatTime::next(int hour, Date now) {
  const Date today = dates::todayAt(now, std::clamp(hour, 0, 23), 0).value_or(now);
  return secondsBetween(now, today) > 60 ? today : dates::addDays(today, 1);
}

}  // namespace tovi
