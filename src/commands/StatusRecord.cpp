#include "commands/StatusRecord.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "core/Dates.h"
#include "core/Json.h"
#include "engine/Engine.h"

namespace tovi {

namespace {

constexpr std::size_t kShownApps = 8;

double tenths(double value) { return json::rounded(value, 1); }
double hundredths(double value) { return json::rounded(value, 2); }

// Minutes without their fraction; a million years are enough.
std::int64_t wholeMinutes(double minutes) {
  constexpr double kMost = 5e11;
  return static_cast<std::int64_t>(std::trunc(std::clamp(minutes, -kMost, kMost)));
}

const char* kindWord(const AgentKind& kind) {
  if (kind.isRequest()) return "sleep_request";
  return kind.isApp() ? "app" : "agent";
}

json::Value sessionObject(const AgentSession& session, Date now) {
  const double idle = secondsBetween(session.lastActive, now);
  return {
      {"name", session.kind.name},
      {"kind", kindWord(session.kind)},
      {"project", session.project.value_or("")},
      {"instances", session.instances},
      {"working", idle < kWorkingSeconds},
      {"running_command", session.toolRunning},
      {"idle_minutes", session.lastActive == kDistantPast ? -1 : wholeMinutes(idle / 60)},
  };
}

json::Value batteryObject(const BatteryReading& battery) {
  return {
      {"percent", battery.percent},
      {"watts", tenths(battery.watts)},
      {"on_power", battery.onAC},
      {"charging", battery.charging},
  };
}

bool powerMeasured(const Engine& engine) { return engine.lastPowerSample && engine.lastPowerSample->accumulated; }

json::Value weekObject(const Engine& engine) {
  const SavingsStats::Week week = engine.stats->week(engine.now());
  const double fullWh = std::max(engine.fullWh.get(), 1.0);
  return {
      {"full_charges_equivalent", hundredths((week.wh + week.whAvoided) / fullWh)},
      {powerMeasured(engine) ? "vs_lid_open_wh" : "by_slowing_apps_wh", hundredths(week.wh)},
      {"by_sleeping_when_done_wh", hundredths(week.whAvoided)},
      {"slept_minutes", wholeMinutes(week.sleptMinutes)},
      {"sessions", week.count},
  };
}

template <class List, class ToValue>
json::Value listOf(const List& list, ToValue toValue) {
  json::Value values = json::Value::array();
  for (const auto& item : list) values.push_back(toValue(item));
  return values;
}

}  // namespace

json::Value energyList(const Engine& engine, std::size_t limit) {
  std::vector<AppUsage> apps = engine.userApps();
  if (apps.size() > limit) apps.resize(limit);
  return listOf(apps, [&](const AppUsage& app) {
    const auto rule = rawValue(engine.rule(app.bundleID, engine.config->preset));
    return json::Value{
        {"name", app.name},
        {"bundle_id", app.bundleID.value_or("")},
        {"watts", hundredths(app.watts)},
        {"while_closed", engine.isProtected(app) ? "kept (Tovi is keeping it awake)" : rule},
    };
  });
}

json::Value statusRecord(const Engine& engine) {
  const Config& config = engine.config;
  const auto& battery = engine.battery.get();
  const double estimate = engine.closedEstimate();
  const Date now = engine.now();

  json::Value rules = json::Value::object();
  for (const auto& [bundle, rule] : config.appRules) rules[bundle] = rawValue(rule);

  json::Value record{
      {"ok", true},
      {"status", engine.statusLine()},
      {"mode", rawValue(config.mode)},
      {"keeping_awake", engine.holding.get()},
      {"lid_closed", engine.lidClosed.get()},
      {"setup_done", engine.setupReady.get()},
      {"preset", rawValue(config.preset)},
      {"closed_estimate_watts", tenths(estimate)},
      {"system_watts", nullptr},
      {"power_measured", powerMeasured(engine)},
      {"config_path", Config::path(engine.state())},
      {"holds", listOf(engine.holds.get(), [](const Hold& hold) { return hold.form(); })},
      {"watch_list", listOf(config.watchedApps, [](const WatchedApp& app) { return app.name; })},
      {"app_rules", std::move(rules)},
      {"watching", listOf(engine.sessions.get(), [&](const AgentSession& s) { return sessionObject(s, now); })},
      {"apps_using_energy", energyList(engine, kShownApps)},
      {"ignored_sleep_blockers",
       listOf(engine.blockers.get(),
              [](const SleepBlocker& blocker) {
                return json::Value{{"process", blocker.process}, {"since", dates::iso8601(blocker.since)}};
              })},
      {"estimated_savings_this_week", weekObject(engine)},
  };
  if (const auto& watts = engine.systemWatts.get()) record["system_watts"] = tenths(*watts);
  if (battery) {
    record["battery"] = batteryObject(*battery);
    if (const auto hours = battery->onAC ? std::nullopt : engine.hoursLeft(estimate)) {
      record["hours_left_closed"] = tenths(*hours);
    }
  }
  if (engine.lidClosed && engine.holding) record["saving_now_watts"] = hundredths(engine.liveSavingW);
  if (const auto& reason = engine.blockedReason.get()) record["blocked_by"] = *reason;
  if (const auto& warning = engine.warning.get()) record["warning"] = *warning;
  if (const auto left = engine.unrestored(); !left.empty()) record["not_put_back_yet"] = left;
  if (const auto& reason = engine.holdReason.get(); reason && engine.holding) record["reason"] = *reason;
  return record;
}

}  // namespace tovi
