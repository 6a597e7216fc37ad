// The figures of the phone's page, in its short words.

#include <fmt/format.h>

#include <algorithm>

#include "core/PanelFormat.h"
#include "engine/Estimates.h"
#include "engine/ReportTexts.h"

namespace tovi::reports {

namespace {

constexpr double kMostWatts = 1e6;  // more is a broken sensor

std::string batteryState(const BatteryReading& battery, double fullWh) {
  if (battery.charging) return fmt::format("{}% · charging", battery.percent);
  if (!battery.usableWatts()) return fmt::format("{}% · plugged in", battery.percent);
  const double perHour = std::min(battery.watts, kMostWatts) / std::max(fullWh, 1.0) * 100;
  return fmt::format("{}% · {:.{}f}% an hour now", battery.percent, perHour, perHour >= 10 ? 0 : 1);
}

std::string caption(const ReportReadings& readings, const std::optional<double>& hours) {
  if (!readings.battery || !drains(*readings.battery)) {
    return hours ? "on battery with the lid closed (charger in now)" : "on the charger";
  }
  std::string text = "left with lid closed";
  const auto open = hoursLeft(readings, openWatts(readings));
  if (hours && open && *hours > *open) {
    text += " · +" + PanelFormat::hm(*hours - *open) + " vs. lid open";
  }
  return text;
}

}  // namespace

std::map<std::string, std::string> phoneFigures(const ReportReadings& readings,
                                                const std::optional<WeekSummary>& week) {
  const auto hours = hoursLeft(readings, closedEstimate(readings));
  std::map<std::string, std::string> figures{
      {"modeLine", modeLine(readings)},
      {"figure", hours ? PanelFormat::hm(*hours) : "No limit"},
      {"figureCaption", caption(readings, hours)},
  };
  if (const auto line = batteryLine(readings)) figures["batteryLine"] = *line;
  if (readings.battery) figures["batteryState"] = batteryState(*readings.battery, readings.fullWh);
  if (const auto watts = presentWatts(readings)) {
    const char* state = !readings.lidClosed ? " open" : readings.agentWorking ? " working, lid closed" : " closed";
    figures["drawLine"] = fmt::format("{:.0f} W{}", *watts, state);
  }
  if (week) {
    figures["weekTitle"] = fmt::format("{} session{}", week->count, week->count == 1 ? "" : "s");
    figures["weekLine"] = fmt::format("{} Wh saved", week->wh);
  }
  return figures;
}

}  // namespace tovi::reports
