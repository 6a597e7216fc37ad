// Words and what they say by themselves.

#include <algorithm>
#include <cmath>

#include "commands/CLI.h"
#include "core/Text.h"

namespace tovi {

namespace {

constexpr double kLongest = 7 * 24 * 60;  // minutes

std::optional<double> minutesPer(char unit) {
  switch (unit) {
    case 'h':
      return 60;
    case 'm':
      return 1;
    case 's':
      return 1.0 / 60;
    default:
      return std::nullopt;
  }
}

// "1h30m", "1h30", "45s".
std::optional<double> sumOfParts(std::string_view text) {
  double sum = 0;
  std::string number;
  for (const char c : text) {
    if ((c >= '0' && c <= '9') || c == '.') {
      number += c;
      continue;
    }
    const auto unit = minutesPer(c);
    const auto value = text::decimal<double>(number);
    if (!unit || !value) return std::nullopt;
    sum += *value * *unit;
    number.clear();
  }
  if (number.empty()) return sum;
  const auto rest = text::decimal<double>(number);
  return rest ? std::optional{sum + *rest} : std::nullopt;
}

}  // namespace

bool CLI::shouldRun(const Words& arguments) {
  if (arguments.empty()) return false;
  return text::lastPathComponent(arguments[0]) == "tovi" || (arguments.size() > 1 && arguments[1] == "cli");
}

CLI::Words CLI::wordsOf(const Words& arguments) {
  const std::size_t skipped = arguments.size() > 1 && arguments[1] == "cli" ? 2 : 1;
  return {arguments.begin() + static_cast<std::ptrdiff_t>(std::min(skipped, arguments.size())), arguments.end()};
}

std::optional<std::string> CLI::flag(std::string_view name, const Words& words) {
  const auto at = std::ranges::find(words, name);
  if (at == words.end() || at + 1 == words.end()) return std::nullopt;
  return *(at + 1);
}

std::optional<double> CLI::parseDuration(std::string_view text) {
  auto minutes = text::decimal<double>(text);
  if (!minutes) minutes = sumOfParts(text::lowercased(text));
  if (!minutes || !std::isfinite(*minutes) || *minutes <= 0) return std::nullopt;
  return std::min(*minutes, kLongest);
}

}  // namespace tovi
