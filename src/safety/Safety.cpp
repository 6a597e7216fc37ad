#include "safety/Safety.h"

#include <limits>
#include <nlohmann/json.hpp>

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
  using Limits = std::numeric_limits<int>;
  if (!guard || !floor || *floor < Limits::min() || *floor > Limits::max()) return std::nullopt;
  return Safety{*guard, static_cast<int>(*floor)};
}

void Safety::save(const StateFiles& state) const {
  const json::Value record{{"heatGuard", heatGuard}, {"batteryFloor", batteryFloor}};
  state.writeDurably(json::compact(record), state.path(kSafety));
}

}  // namespace tovi
