#include "commands/Arguments.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/Text.h"

namespace tovi {

namespace {

struct FlagWord {
  std::string_view word;
  bool value;
};

constexpr FlagWord kFlagWords[] = {
    {"on", true},  {"off", false}, {"true", true}, {"false", false},
    {"yes", true}, {"no", false},  {"1", true},    {"0", false},
};

}  // namespace

bool Arguments::has(std::string_view key) const { return json::member(values_, key) != nullptr; }

std::optional<std::string> Arguments::text(std::string_view key) const { return json::textAt(values_, key); }

std::optional<double> Arguments::number(std::string_view key, double most) const {
  auto value = json::numberAt(values_, key);
  if (const auto words = text(key)) value = text::decimal<double>(*words);
  if (!value || !std::isfinite(*value) || *value < 0) return std::nullopt;
  return std::min(*value, most);
}

std::optional<bool> Arguments::flag(std::string_view key) const {
  if (const auto value = json::boolAt(values_, key)) return value;
  if (const auto value = json::numberAt(values_, key)) return *value != 0;
  const auto words = text(key);
  if (!words) return std::nullopt;
  const std::string word = text::lowercased(*words);
  const auto row = std::ranges::find(kFlagWords, word, &FlagWord::word);
  return row != std::end(kFlagWords) ? std::optional{row->value} : std::nullopt;
}

}  // namespace tovi
