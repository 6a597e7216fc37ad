#include "core/TopicName.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cstddef>

#include "platform/Utf8.h"

namespace tovi {

namespace {

constexpr std::size_t kLongest = 64;  // characters; a mark counts as one, as where the settings are read

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

// Numbers that are no digits, such as "½" and "①", which the C library doesn't count among letters and numbers: the
// category No of Unicode 14, first and last.
constexpr char32_t kOtherNumbers[][2] = {
    {0xB2, 0xB3},       {0xB9, 0xB9},       {0xBC, 0xBE},       {0x9F4, 0x9F9},     {0xB72, 0xB77},
    {0xBF0, 0xBF2},     {0xC78, 0xC7E},     {0xD58, 0xD5E},     {0xD70, 0xD78},     {0xF2A, 0xF33},
    {0x1369, 0x137C},   {0x17F0, 0x17F9},   {0x19DA, 0x19DA},   {0x2070, 0x2070},   {0x2074, 0x2079},
    {0x2080, 0x2089},   {0x2150, 0x215F},   {0x2189, 0x2189},   {0x2460, 0x249B},   {0x24EA, 0x24FF},
    {0x2776, 0x2793},   {0x2CFD, 0x2CFD},   {0x3192, 0x3195},   {0x3220, 0x3229},   {0x3248, 0x324F},
    {0x3251, 0x325F},   {0x3280, 0x3289},   {0x32B1, 0x32BF},   {0xA830, 0xA835},   {0x10107, 0x10133},
    {0x10175, 0x10178}, {0x1018A, 0x1018B}, {0x102E1, 0x102FB}, {0x10320, 0x10323}, {0x10858, 0x1085F},
    {0x10879, 0x1087F}, {0x108A7, 0x108AF}, {0x108FB, 0x108FF}, {0x10916, 0x1091B}, {0x109BC, 0x109BD},
    {0x109C0, 0x109CF}, {0x109D2, 0x109FF}, {0x10A40, 0x10A48}, {0x10A7D, 0x10A7E}, {0x10A9D, 0x10A9F},
    {0x10AEB, 0x10AEF}, {0x10B58, 0x10B5F}, {0x10B78, 0x10B7F}, {0x10BA9, 0x10BAF}, {0x10CFA, 0x10CFF},
    {0x10E60, 0x10E7E}, {0x10F1D, 0x10F26}, {0x10F51, 0x10F54}, {0x10FC5, 0x10FCB}, {0x11052, 0x11065},
    {0x111E1, 0x111F4}, {0x1173A, 0x1173B}, {0x118EA, 0x118F2}, {0x11C5A, 0x11C6C}, {0x11FC0, 0x11FD4},
    {0x16B5B, 0x16B61}, {0x16E80, 0x16E96}, {0x1D2E0, 0x1D2F3}, {0x1D360, 0x1D378}, {0x1E8C7, 0x1E8CF},
    {0x1EC71, 0x1ECAB}, {0x1ECAD, 0x1ECAF}, {0x1ECB1, 0x1ECB4}, {0x1ED01, 0x1ED2D}, {0x1ED2F, 0x1ED3D},
    {0x1F100, 0x1F10C}};

bool isOtherNumber(char32_t c) {
  return std::ranges::any_of(kOtherNumbers, [&](const auto& range) { return range[0] <= c && c <= range[1]; });
}

bool isAsciiAlphanumeric(char32_t c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Letters must not depend on the person's own locale, which may know only those of ASCII.
locale_t everyScript() {
  static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

bool isLetterOrNumber(char32_t c) {
  if (c < 0x80) return isAsciiAlphanumeric(c);
  if (everyScript() == nullptr) return false;
  return ::iswalnum_l(static_cast<wint_t>(c), everyScript()) != 0 || isOtherNumber(c);
}

// A mark that belongs to the letter before it, as half of the scripts of India write their vowels.
bool isMark(char32_t c) {
  if (c < 0x80 || everyScript() == nullptr) return false;
  return ::iswctype_l(static_cast<wint_t>(c), ::wctype_l("combining", everyScript()), everyScript()) != 0;
}

}  // namespace

bool isTopicName(std::string_view text) {
  if (text.empty() || !isUtf8(text)) return false;
  std::size_t length = 0;
  while (!text.empty()) {
    const char32_t c = takeCharacter(text);
    const bool fits = isLetterOrNumber(c) || c == '-' || c == '_' || (length > 0 && isMark(c));
    if (++length > kLongest || !fits) return false;
  }
  return true;
}

}  // namespace tovi
