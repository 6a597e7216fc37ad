#include "core/Text.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <clocale>
#include <cwchar>
#include <cwctype>

namespace tovi::text {

namespace {
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
}  // namespace

std::string firstCharacters(std::string_view text, std::size_t count) {
  std::size_t at = 0;
  while (at < text.size() && count > 0) {
    ++at;
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
    --count;
  }
  return std::string{text.substr(0, at)};
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::string lowercased(std::string_view text) {
  std::string copy{text};
  std::transform(copy.begin(), copy.end(), copy.begin(), lower);
  return copy;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string folded(std::string_view text) {
  const bool plain = std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  static const locale_t unicode = plain ? nullptr : ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (plain || unicode == nullptr) return lowercased(text);
  const locale_t before = ::uselocale(unicode);
  std::string result;
  std::mbstate_t reading{}, writing{};
  while (!text.empty()) {
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &reading);
    if (length == 0 || length > text.size()) {  // a zero, or no character
      result += text.front();
      text.remove_prefix(1);
      reading = {};
      continue;
    }
    char bytes[MB_LEN_MAX];
    const std::size_t written =
        std::wcrtomb(bytes, static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character))), &writing);
    result.append(bytes, written);
    text.remove_prefix(length);
  }
  ::uselocale(before);
  return result;
}

std::vector<std::string_view> pieces(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> found;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(separators, at)) != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    found.push_back(text.substr(at, end - at));
    at = end;
  }
  return found;
}

std::string_view lastPathComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

}  // namespace tovi::text
