#include "commands/Arguments.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/SettingsSchema.h"
#include "core/Text.h"

namespace tovi {

bool Arguments::has(std::string_view key) const { return value(key) != nullptr; }

const nlohmann::json* Arguments::value(std::string_view key) const { return json::member(values_, key); }

std::optional<std::string> Arguments::text(std::string_view key) const { return json::textAt(values_, key); }

std::optional<double> Arguments::number(std::string_view key, double most) const {
  auto number = json::numberAt(values_, key);
  if (const auto words = text(key)) number = text::decimal<double>(*words);
  if (!number || !std::isfinite(*number) || *number < 0) return std::nullopt;
  return std::min(*number, most);
}

std::optional<bool> Arguments::flag(std::string_view key) const {
  const nlohmann::json* given = value(key);
  return given != nullptr ? SettingsSchema::boolean(*given) : std::nullopt;
}

}  // namespace tovi
