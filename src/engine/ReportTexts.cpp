#include "engine/ReportTexts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "core/Dates.h"
#include "core/PanelFormat.h"
#include "engine/AwakeDecision.h"
#include "engine/Estimates.h"

namespace tovi::reports {

namespace {

constexpr double kRecent = 1800;  // seconds

std::string timeOf(Date date) { return dates::shortTime(date); }

}  // namespace

std::string statusLine(const ReportReadings& readings) {
  if (!readings.setupReady) return "Needs a one-time setup";
  if (readings.blockedReason) return *readings.blockedReason + ", sleeps when closed";
  if (readings.config.mode == Mode::on) {
    const auto until = onUntil(readings.config);
    if (!until) return "Awake until you turn it off";
    return fmt::format("Awake until {} · {} left", timeOf(*until), PanelFormat::minutes(alwaysLeft(readings)));
  }
  if (readings.holding && readings.holdReason) return *readings.holdReason + " · sleeps when closed";
  return readings.config.mode == Mode::off ? "Sleeps when you close the lid" : "Nothing running · sleeps when closed";
}

std::string modeLine(const ReportReadings& readings) {
  switch (readings.config.mode) {
    case Mode::off:
      return readings.hasLid ? "Sleeps like normal when you close the lid." : "Sleeps like normal.";
    case Mode::automatic:
      return "Stays awake while your AI agents work, then sleeps.";
    case Mode::on:
      break;
  }
  const auto until = onUntil(readings.config);
  return until ? "Stays awake until " + timeOf(*until) + "." : "Stays awake until you turn it off.";
}

std::optional<std::string> batteryLine(const ReportReadings& readings) {
  if (!readings.battery) return std::nullopt;
  std::string line = fmt::format("{}%", readings.battery->percent);
  const auto hours = hoursLeft(readings, closedEstimate(readings));
  if (hours && readings.hasLid) {
    line += " · about " + PanelFormat::hm(*hours) + " with the lid closed";
  } else if (readings.battery->charging) {
    line += " · charging";
  }
  return line;
}

LidOutcome lidOutcome(const ReportReadings& readings) {
  const char* keeps = readings.hasLid ? "Close the lid: it keeps working" : "Stays awake";
  const char* sleeps = readings.hasLid ? "Close the lid: it sleeps" : "Sleeps normally";
  if (!readings.setupReady) return {false, sleeps, "Tovi needs a one-time setup"};
  if (readings.blockedReason) return {false, sleeps, *readings.blockedReason};
  if (readings.holding) return {true, keeps, readings.holdReason.value_or("Staying awake")};
  switch (readings.config.mode) {
    case Mode::off:
      return {false, sleeps, "Tovi is off"};
    case Mode::automatic:
      return {false, sleeps, "No agent is working right now"};
    case Mode::on:
      break;
  }
  return {false, sleeps, "Starting…"};
}

std::optional<std::string> menuBarTitle(const ReportReadings& readings) {
  const auto& battery = readings.battery;
  switch (readings.config.menuBarText) {
    case MenuBarText::none:
      return std::nullopt;
    case MenuBarText::battery:
      return battery ? std::optional{fmt::format("{}%", battery->percent)} : std::nullopt;
    case MenuBarText::watts: {
      const auto watts = presentWatts(readings);
      return watts ? std::optional{fmt::format("{:.1f}W", *watts)} : std::nullopt;
    }
    case MenuBarText::timeLeft: {
      if (!battery) return std::nullopt;
      if (battery->onAC && !drains(*battery)) return "∞";
      const auto hours = hoursLeft(readings, closedEstimate(readings));
      if (!hours) return std::nullopt;
      return *hours >= 1 ? fmt::format("{:.0f}h", *hours) : fmt::format("{:.0f}m", *hours * 60);
    }
    case MenuBarText::timer: {
      if (!onUntil(readings.config)) return std::nullopt;
      const std::int64_t minutes = wholeNumber(alwaysLeft(readings) / 60);
      return fmt::format("{}:{:02}", minutes / 60, minutes % 60);
    }
  }
  return std::nullopt;
}

std::string closedPlanWords(AppRule rule, bool isProtected) {
  if (isProtected) return "keeps running (Tovi needs it)";
  switch (rule) {
    case AppRule::leave:
      return "keeps running";
    case AppRule::slow:
      return "runs slower";
    case AppRule::pause:
      break;
  }
  return "pauses until the lid opens";
}

std::string receiptLine(const Receipt& receipt, Date now) {
  const Date end = receipt.sleptAt            ? *receipt.sleptAt
                   : receipt.sleepRequestedAt ? *receipt.sleepRequestedAt
                                              : receipt.openedAt.value_or(now);
  const std::int64_t minutes = std::max<std::int64_t>(wholeNumber(secondsBetween(receipt.closedAt, end) / 60), 0);
  const std::string duration = minutes < 60 ? fmt::format("{} min", std::max<std::int64_t>(minutes, 1))
                                            : fmt::format("{} h {} min", minutes / 60, minutes % 60);
  std::string line = receipt.sleptAt            ? "Ran " + duration + ", then slept"
                     : receipt.sleepRequestedAt ? "Ran " + duration + ", then asked it to sleep"
                                                : "Stayed awake " + duration;
  if (receipt.startPercent && receipt.endPercent && *receipt.startPercent >= *receipt.endPercent) {
    line += fmt::format(" · used {}%", *receipt.startPercent - *receipt.endPercent);
  }
  return line;
}

std::optional<Receipt> recentReceipt(const std::optional<Receipt>& receipt, Date now) {
  const bool recent = receipt && receipt->openedAt && secondsBetween(*receipt->openedAt, now) < kRecent;
  return recent ? receipt : std::nullopt;
}

std::optional<WeekSummary> weekSummary(const SavingsStats::Week& week, double fullWh) {
  if (week.count == 0) return std::nullopt;
  const double wh = week.wh + week.whAvoided;
  return WeekSummary{week.count, wholeNumber(week.closedMinutes / 60), wholeNumber(wh),
                     wholeNumber(wh / std::max(fullWh, 1.0) * 100)};
}

std::optional<std::string> batteryDetail(const ReportReadings& readings) {
  if (!readings.battery) return std::nullopt;
  const auto hours = readings.hasLid ? hoursLeft(readings, closedEstimate(readings)) : std::nullopt;
  if (drains(*readings.battery)) {
    return hours ? std::optional{PanelFormat::hm(*hours) + " left with the lid closed"} : std::nullopt;
  }
  const std::string source = readings.battery->charging ? "charging" : "plugged in";
  return hours ? source + " (" + PanelFormat::hm(*hours) + " on battery, lid closed)" : source;
}

}  // namespace tovi::reports
