#include "core/Json.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/JsonDepth.h"

namespace tovi::json {

namespace {

constexpr int kMostOverflows = 64;
constexpr int kNumberOverflow = 406;  // the library's number of that error

// The literal of a number that no double can hold, which the error's text names between quotes, made null.
bool nullify(std::string& text, std::string_view error) {
  const auto from = error.find('\'');
  const auto to = error.rfind('\'');
  if (from == std::string_view::npos || to <= from + 1) return false;
  const std::string_view literal = error.substr(from + 1, to - from - 1);
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (quoted && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      quoted = !quoted;
    } else if (!quoted && text.compare(at, literal.size(), literal) == 0) {
      text.replace(at, literal.size(), "null");
      return true;
    }
  }
  return false;
}

// A UTF-16 unit: four hexadecimal digits at `at`; nothing if they aren't.
std::optional<unsigned> unitAt(std::string_view text, std::size_t at) {
  unsigned unit = 0;
  if (at + 4 > text.size()) return std::nullopt;
  const char* const end = text.data() + at + 4;
  const auto [stopped, error] = std::from_chars(text.data() + at, end, unit, 16);
  return error == std::errc{} && stopped == end ? std::optional{unit} : std::nullopt;
}

// Half of a character's two escapes without the other, made the sign for what can't be read. Whoever cuts a text of
// UTF-16 units makes one.
void mendHalves(std::string& text) {
  constexpr std::string_view kUnreadable = "fffd";
  const auto isHigh = [](std::optional<unsigned> unit) { return unit && *unit >= 0xD800 && *unit < 0xDC00; };
  const auto isLow = [](std::optional<unsigned> unit) { return unit && *unit >= 0xDC00 && *unit < 0xE000; };
  for (std::size_t at = text.find('\\'); at != std::string::npos; at = text.find('\\', at)) {
    if (text.compare(at, 2, "\\u") != 0) {
      at += 2;
      continue;
    }
    const auto unit = unitAt(text, at + 2);
    if (isHigh(unit) && text.compare(at + 6, 2, "\\u") == 0 && isLow(unitAt(text, at + 8))) {
      at += 12;
      continue;
    }
    if (isHigh(unit) || isLow(unit)) text.replace(at + 2, 4, kUnreadable);
    at += 6;
  }
}

}  // namespace

std::optional<Value> parse(std::string_view text) {
  // The parser takes a NUL for the end, and would pass over what follows.
  if (isTooDeep(text) || text.find('\0') != text.npos) return std::nullopt;
  Value value = Value::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!value.is_discarded()) return value;
  // 1e999 is JSON all the same: it costs its own value, not the document.
  std::string repaired{text};
  mendHalves(repaired);
  for (int count = 0; count < kMostOverflows; ++count) {
    try {
      return Value::parse(repaired);
    } catch (const Value::out_of_range& error) {
      if (error.id != kNumberOverflow || !nullify(repaired, error.what())) return std::nullopt;
    } catch (const Value::exception&) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

std::optional<Value> parseObject(std::string_view text) {
  auto value = parse(text);
  if (!value || !value->is_object()) return std::nullopt;
  return value;
}

std::string pretty(const Value& value) { return value.dump(2, ' ', false, Value::error_handler_t::replace); }
std::string compact(const Value& value) { return value.dump(-1, ' ', false, Value::error_handler_t::replace); }

std::optional<bool> asBool(const Value& value) {
  return value.is_boolean() ? std::optional{value.get<bool>()} : std::nullopt;
}

std::optional<double> asNumber(const Value& value) {
  return value.is_number() ? std::optional{value.get<double>()} : std::nullopt;
}

std::optional<std::int64_t> asInteger(const Value& value) {
  if (value.is_number_unsigned()) {
    const auto whole = value.get<std::uint64_t>();
    if (whole > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
    return static_cast<std::int64_t>(whole);
  }
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (!value.is_number_float()) return std::nullopt;
  const double number = value.get<double>();
  // 2^63 is the first double that doesn't fit; the comparison also turns away NaN.
  if (!(number >= -9223372036854775808.0 && number < 9223372036854775808.0) || number != std::floor(number)) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(number);
}

std::optional<std::string> asText(const Value& value) {
  return value.is_string() ? std::optional{value.get<std::string>()} : std::nullopt;
}

const Value* member(const Value& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  const auto at = object.find(key);
  return at == object.end() ? nullptr : &*at;
}

std::optional<bool> boolAt(const Value& object, std::string_view key) {
  const Value* value = member(object, key);
  return value != nullptr ? asBool(*value) : std::nullopt;
}

std::optional<double> numberAt(const Value& object, std::string_view key) {
  const Value* value = member(object, key);
  return value != nullptr ? asNumber(*value) : std::nullopt;
}

std::optional<std::int64_t> integerAt(const Value& object, std::string_view key) {
  const Value* value = member(object, key);
  return value != nullptr ? asInteger(*value) : std::nullopt;
}

std::optional<std::string> textAt(const Value& object, std::string_view key) {
  const Value* value = member(object, key);
  return value != nullptr ? asText(*value) : std::nullopt;
}

double rounded(double value, int decimals) {
  const double scale = std::pow(10.0, decimals);
  const double scaled = std::round(value * scale);
  return std::isfinite(scaled) ? scaled / scale + 0.0 : value;  // + 0.0 turns -0.0 into 0.0
}

}  // namespace tovi::json
