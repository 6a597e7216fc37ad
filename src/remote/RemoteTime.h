// Clocks of others, as they stand in messages.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>

namespace tovi::RemoteTime {

// Seconds since 1970 under a key; absent unless it is a number between then and the year 10000.
std::optional<double> at(const nlohmann::json& object, std::string_view key);

}  // namespace tovi::RemoteTime
