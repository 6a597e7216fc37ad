#include "core/TopicName.h"

#include <locale.h>
#include <wctype.h>

#include <cstddef>

#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr std::size_t kLongest = 64;  // characters

// The character at the front of UTF-8 text, which is taken off it.
char32_t takeCharacter(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t character = length == 1 ? lead : lead & (0xFFu >> (length + 1));
  for (const char byte : text.substr(1, length - 1)) {
    character = (character << 6) | (static_cast<unsigned char>(byte) & 0x3Fu);
  }
  text.remove_prefix(length);
  return character;
}

bool isAsciiAlphanumeric(char32_t c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool isLetterOrNumber(char32_t c) {
  if (c < 0x80) return isAsciiAlphanumeric(c);
  // Letters must not depend on the person's own locale, which may know only those of ASCII.
  static const locale_t everyScript = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return everyScript != nullptr && ::iswalnum_l(static_cast<wint_t>(c), everyScript) != 0;
}

}  // namespace

bool isTopicName(std::string_view text) {
  if (text.empty() || !isUtf8(text)) return false;
  std::size_t length = 0;
  while (!text.empty()) {
    const char32_t c = takeCharacter(text);
    if (++length > kLongest || !(isLetterOrNumber(c) || c == '-' || c == '_')) return false;
  }
  return true;
}

}  // namespace tovi
