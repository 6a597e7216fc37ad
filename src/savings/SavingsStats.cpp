#include "savings/SavingsStats.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Dates.h"
#include "core/Json.h"
#include "core/StateFiles.h"

namespace tovi {

namespace {

constexpr char kFile[] = "stats.json";
constexpr std::size_t kMostSessions = 400;
constexpr double kWeek = 7 * 24 * 3600.0;

using json::Value;

Value encode(const SavingsStats::Session& session) {
  Value value{{"date", dates::iso8601(session.date)},
              {"closedMinutes", session.closedMinutes},
              {"whSaved", session.whSaved},
              {"sleptMinutes", session.sleptMinutes},
              {"whAvoided", session.whAvoided}};
  if (session.startPercent) value["startPercent"] = *session.startPercent;
  if (session.endPercent) value["endPercent"] = *session.endPercent;
  if (session.agent) value["agent"] = *session.agent;
  return value;
}

std::optional<SavingsStats::Session> decode(const Value& value) {
  const auto date = json::textAt(value, "date");
  const auto at = date ? dates::parseIso8601(*date) : std::nullopt;
  const auto closed = json::numberAt(value, "closedMinutes");
  const auto saved = json::numberAt(value, "whSaved");
  const auto slept = json::numberAt(value, "sleptMinutes");
  const auto avoided = json::numberAt(value, "whAvoided");
  if (!at || !closed || !saved || !slept || !avoided) return std::nullopt;
  const auto percent = [&](std::string_view key) -> std::optional<int> {
    const auto number = json::integerAt(value, key);
    return number && *number >= -100 && *number <= 100 ? std::optional{static_cast<int>(*number)} : std::nullopt;
  };
  return SavingsStats::Session{*at,
                               *closed,
                               *saved,
                               *slept,
                               *avoided,
                               percent("startPercent"),
                               percent("endPercent"),
                               json::textAt(value, "agent")};
}

}  // namespace

SavingsStats SavingsStats::load(const StateFiles& state) {
  const auto text = state.read(kFile);
  const auto document = text ? json::parseObject(*text) : std::nullopt;
  if (!document) return {};
  const auto saved = json::numberAt(*document, "allTimeWhSaved");
  const auto avoided = json::numberAt(*document, "allTimeWhAvoided");
  const Value* list = json::member(*document, "sessions");
  if (!saved || !avoided || list == nullptr || !list->is_array()) return {};
  SavingsStats stats;
  stats.allTimeWhSaved = *saved;
  stats.allTimeWhAvoided = *avoided;
  for (const Value& entry : *list) {
    auto session = decode(entry);
    if (!session) return {};
    stats.sessions.push_back(std::move(*session));
  }
  return stats;
}

void SavingsStats::add(Session session) {
  allTimeWhSaved += session.whSaved;
  allTimeWhAvoided += session.whAvoided;
  sessions.reserve(sessions.size() + 1);  // no more, or the account would hold twice its room for ever
  sessions.push_back(std::move(session));
  if (sessions.size() > kMostSessions) {
    sessions.erase(sessions.begin(), sessions.end() - static_cast<std::ptrdiff_t>(kMostSessions));
  }
}

SavingsStats::Week SavingsStats::week(Date now) const {
  Week week;
  for (const Session& session : sessions) {
    if (secondsBetween(session.date, now) >= kWeek) continue;
    week.wh += session.whSaved;
    week.whAvoided += session.whAvoided;
    week.sleptMinutes += session.sleptMinutes;
    week.closedMinutes += session.closedMinutes;
    ++week.count;
  }
  return week;
}

bool SavingsStats::save(const StateFiles& state) const {
  Value list = Value::array();
  for (const Session& session : sessions) list.push_back(encode(session));
  const Value document{
      {"sessions", std::move(list)}, {"allTimeWhSaved", allTimeWhSaved}, {"allTimeWhAvoided", allTimeWhAvoided}};
  return state.writeDurably(json::pretty(document), state.path(kFile));
}

}  // namespace tovi
