#include "safety/Safety.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "core/Config.h"
#include "core/Json.h"
#include "core/StateFiles.h"

namespace tovi {

namespace {
constexpr char kSafety[] = "safety.json";
}

std::optional<Safety> Safety::load(const StateFiles& state) {
  const auto content = state.read(kSafety);
  const auto record = content ? json::parseObject(*content) : std::nullopt;
  if (!record) return std::nullopt;
  const auto guard = json::boolAt(*record, "heatGuard");
  const auto floor = json::integerAt(*record, "batteryFloor");
  if (!guard || !floor) return std::nullopt;
  // Within what the setting itself can be, or it could never agree with the record.
  return Safety{*guard, static_cast<int>(std::clamp<std::int64_t>(*floor, 0, Config::kMostBatteryFloor))};
}

void Safety::tighten(bool& guard, int& floor) const {
  guard = guard || heatGuard;
  floor = std::max(floor, batteryFloor);
}

void Safety::save(const StateFiles& state) const {
  const json::Value record{{"heatGuard", heatGuard}, {"batteryFloor", batteryFloor}};
  state.writeDurably(json::compact(record), state.path(kSafety));
}

}  // namespace tovi
