// The state in words and figures, one wording for every surface.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "core/Dates.h"
#include "core/PanelFormat.h"
#include "core/Text.h"
#include "engine/Engine.h"
#include "observe/AppClasses.h"
#include "platform/Clock.h"

namespace tovi {

namespace {

constexpr double kMachineWatts = 1.6;  // the machine itself, without any application
constexpr double kSlowedShare = 0.25;  // of its draw that a slowed application keeps

}  // namespace

std::string Engine::statusLine() const {
  if (!setupReady) return "Needs a one-time setup";
  if (blockedReason.get()) return *blockedReason.get() + ", sleeps when closed";
  if (config->mode == Mode::on) {
    const auto until = onUntil();
    if (!until) return "Awake until you turn it off";
    const double left = std::max(secondsBetween(now(), *until), 0.0);
    return fmt::format("Awake until {} · {} left", dates::shortTime(*until), PanelFormat::hm(left / 3600));
  }
  if (holding && holdReason.get()) return *holdReason.get() + " · sleeps when closed";
  return config->mode == Mode::off ? "Sleeps when you close the lid" : "Nothing running · sleeps when closed";
}

std::optional<double> Engine::sleepsIn(const AgentSession& session) const {
  if (config->mode != Mode::automatic || !config->sleepWhenDone || session.lastActive == kDistantPast) return {};
  const auto& shownOnly = config->trackOnly;
  if (std::find(shownOnly.begin(), shownOnly.end(), session.kind.id) != shownOnly.end()) return std::nullopt;
  const double idle = secondsBetween(session.lastActive, now());
  const double left = config->quietMinutes * 60.0 - idle;
  return idle >= kWorkingSeconds && left > 0 ? std::optional{left} : std::nullopt;
}

std::optional<double> Engine::hoursLeft(std::optional<double> watts) const {
  if (!battery.get() || !watts || !(*watts > 0.1)) return std::nullopt;
  // The limit comes off, since that is where the machine will stop.
  return std::max(battery.get()->percent - config->batteryFloor, 0) / 100.0 * fullWh / *watts;
}

std::optional<double> Engine::closedEstimate() const {
  const auto discharge = battery.get() ? battery.get()->usableWatts() : std::nullopt;
  const auto present = systemWatts.get() ? systemWatts.get() : discharge;
  if (lidClosed && holding && present) return present;
  double sum = kMachineWatts;
  if (closedDraw.get()) {
    sum = *closedDraw.get();
  } else {
    for (const AppUsage& app : *apps) {
      if (app.system) continue;
      AppRule kept = AppRule::leave;
      if (!isProtected(app)) kept = rule(app.bundleID, config->preset);
      if (kept == AppRule::leave) sum += app.watts;
      if (kept == AppRule::slow) sum += app.watts * kSlowedShare;
    }
  }
  if (!lidClosed && present) sum = std::min(sum, *present);
  return sum;
}

std::string Engine::receiptLine(const Receipt& record) const {
  const Date end = record.sleptAt            ? *record.sleptAt
                   : record.sleepRequestedAt ? *record.sleepRequestedAt
                                             : record.openedAt.value_or(now());
  const auto minutes = std::max(0LL, static_cast<long long>(secondsBetween(record.closedAt, end) / 60));
  const std::string duration = minutes < 60 ? fmt::format("{} min", std::max(minutes, 1LL))
                                            : fmt::format("{} h {} min", minutes / 60, minutes % 60);
  std::string line = record.sleptAt            ? "Ran " + duration + ", then slept"
                     : record.sleepRequestedAt ? "Ran " + duration + ", then asked it to sleep"
                                               : "Stayed awake " + duration;
  if (record.startPercent && record.endPercent && *record.startPercent >= *record.endPercent) {
    line += fmt::format(" · used {}%", *record.startPercent - *record.endPercent);
  }
  return line;
}

std::vector<std::string> Engine::unrestored() const {
  std::vector<std::string> names;
  if (lidClosed && holding) return names;
  for (const Touched& entry : *touched) names.emplace_back(text::lastPathComponent(entry.path));
  return names;
}

}  // namespace tovi
