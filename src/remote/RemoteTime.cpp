#include "remote/RemoteTime.h"

#include "core/Json.h"

namespace tovi::RemoteTime {

std::optional<double> at(const nlohmann::json& object, std::string_view key) {
  constexpr double kYear10000 = 253402300800.0;
  const auto seconds = json::numberAt(object, key);
  if (!seconds || !(*seconds >= 0 && *seconds < kYear10000)) return std::nullopt;
  return seconds;
}

}  // namespace tovi::RemoteTime
