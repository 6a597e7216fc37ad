#include "core/PanelFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace tovi::PanelFormat {

namespace {

// So that a sum of binary fractions such as 61 / 60 hours counts as the whole minutes it stands for.
constexpr double kRoundOff = 1e-6;

long long whole(double minutes) {
  if (!(minutes > 0)) return 0;
  return static_cast<long long>(std::floor(std::min(minutes, 1e15) + kRoundOff));
}

std::string words(long long minutes) {
  if (minutes < 60) return fmt::format("{} min", minutes);
  if (minutes > 599 || minutes % 60 == 0) return fmt::format("{} h", minutes / 60);
  return fmt::format("{} h {} min", minutes / 60, minutes % 60);
}

}  // namespace

std::string minutes(double seconds) { return words(whole(seconds / 60)); }

std::string hm(double hours) { return words(whole(hours * 60)); }

std::string duration(double minutes) {
  if (minutes < 90) return fmt::format("{} min", whole(minutes));
  std::string text = fmt::format("{:.1f} hours", minutes / 60);
  if (const auto zero = text.find(".0 "); zero != std::string::npos) text.erase(zero, 2);
  return text;
}

}  // namespace tovi::PanelFormat
