#include "platform/Utf8.h"

#include <cstddef>
#include <optional>

namespace tovi {
namespace {

struct Lead {
  std::size_t followers;
  unsigned char low, high;  // bounds of the first follower; they keep out overlong forms and surrogates
};

std::optional<Lead> leadOf(unsigned char byte) {
  if (byte < 0x80) return Lead{0, 0, 0};
  if (byte >= 0xC2 && byte <= 0xDF) return Lead{1, 0x80, 0xBF};
  if (byte == 0xE0) return Lead{2, 0xA0, 0xBF};
  if (byte == 0xED) return Lead{2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return Lead{2, 0x80, 0xBF};
  if (byte == 0xF0) return Lead{3, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return Lead{3, 0x80, 0xBF};
  if (byte == 0xF4) return Lead{3, 0x80, 0x8F};
  return {};
}

struct Step {
  std::size_t length;  // bytes of one character, or of one invalid stretch; 1 or more
  bool valid;
};

Step next(std::string_view bytes, std::size_t at) {
  const auto lead = leadOf(static_cast<unsigned char>(bytes[at]));
  if (!lead) return {1, false};
  unsigned char low = lead->low, high = lead->high;
  for (std::size_t i = 1; i <= lead->followers; ++i) {
    if (at + i >= bytes.size()) return {i, false};
    const auto byte = static_cast<unsigned char>(bytes[at + i]);
    if (byte < low || byte > high) return {i, false};
    low = 0x80;
    high = 0xBF;
  }
  return {1 + lead->followers, true};
}

// How many bytes from the start are valid.
std::size_t validPrefix(std::string_view bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    if (static_cast<unsigned char>(bytes[at]) < 0x80) {
      ++at;
      continue;
    }
    const Step step = next(bytes, at);
    if (!step.valid) break;
    at += step.length;
  }
  return at;
}

}  // namespace

bool isUtf8(std::string_view bytes) { return validPrefix(bytes) == bytes.size(); }

std::string repairUtf8(std::string_view bytes) {
  std::size_t at = validPrefix(bytes);
  std::string repaired(bytes.substr(0, at));
  while (at < bytes.size()) {
    const Step step = next(bytes, at);
    if (step.valid) {
      repaired.append(bytes, at, step.length);
    } else {
      repaired.append("\xEF\xBF\xBD");
    }
    at += step.length;
  }
  return repaired;
}

}  // namespace tovi
