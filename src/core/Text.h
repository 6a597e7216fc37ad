// Small operations on text that people typed or files gave.
#pragma once

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi::text {

// The first `count` characters (code points; a byte that belongs to none counts as one).
std::string firstCharacters(std::string_view text, std::size_t count);

std::string_view trimmed(std::string_view text);                 // without white space at both ends
std::string lowercased(std::string_view text);                   // ASCII letters only
bool equalIgnoringCase(std::string_view a, std::string_view b);  // likewise

// Fit for comparing what people read without regard to case, in any script; bytes that aren't UTF-8 stay as they are.
std::string folded(std::string_view text);

// The pieces between any of `separators`, empty ones left out.
std::vector<std::string_view> pieces(std::string_view text, std::string_view separators);

std::string_view lastPathComponent(std::string_view path);

// The whole text as one decimal number that fits, with a sign or without; absent for anything else, blanks around it
// included.
template <class Number>
std::optional<Number> decimal(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace tovi::text
