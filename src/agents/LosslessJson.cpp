#include "agents/LosslessJson.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

namespace tovi::lossless {

namespace {

constexpr std::size_t kDeepest = 512;  // levels; writing goes down the stack with them

// A decimal number without its sign and superfluous zeros: 0.digits times ten to the exponent.
struct Decimal {
  std::string digits;
  long exponent = 0;

  friend bool operator==(const Decimal&, const Decimal&) = default;
};

std::optional<Decimal> decimalOf(std::string_view literal) {
  Decimal decimal;
  bool afterPoint = false;
  std::size_t at = literal.starts_with('-') ? 1 : 0;
  for (; at < literal.size() && literal[at] != 'e' && literal[at] != 'E'; ++at) {
    const char c = literal[at];
    if (c == '.') {
      afterPoint = true;
    } else if (c == '0' && decimal.digits.empty()) {
      decimal.exponent -= afterPoint;
    } else {
      decimal.digits += c;
      decimal.exponent += !afterPoint;
    }
  }
  while (decimal.digits.ends_with('0')) decimal.digits.pop_back();
  if (decimal.digits.empty()) return Decimal{};
  if (at < literal.size()) {
    std::string_view power = literal.substr(at + 1);
    if (power.starts_with('+')) power.remove_prefix(1);
    int value = 0;
    if (std::from_chars(power.data(), power.data() + power.size(), value).ec != std::errc{}) return std::nullopt;
    decimal.exponent += value;
  }
  return decimal;
}

// The fewest digits that are read as `value` again; never as an integer.
std::string shortest(double value) {
  char room[32];
  std::string literal(room, std::to_chars(room, room + sizeof room, value).ptr);
  if (literal.find_first_of(".e") == std::string::npos) literal += ".0";
  return literal;
}

void write(std::string& text, const Object& value, std::size_t indent) {
  const auto inOneLine = [](const Object& one) { return one.dump(-1, ' ', false, Object::error_handler_t::replace); };
  if (value.is_number_float()) {
    text += shortest(value.get<double>());
  } else if (!value.is_structured() || value.empty()) {
    text += inOneLine(value);
  } else {
    const std::string_view brackets = value.is_object() ? "{}" : "[]";
    text += brackets.front();
    const char* separator = "\n";
    for (const auto& [key, member] : value.items()) {
      text += separator;
      separator = ",\n";
      text.append(indent + 2, ' ');
      if (value.is_object()) text += inOneLine(key) + ": ";
      write(text, member, indent + 2);
    }
    text += '\n';
    text.append(indent, ' ');
    text += brackets.back();
  }
}

// Goes through a text without keeping it, and stops at the first thing that would be lost.
class LossCheck final : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t value) override { return value != 0; }  // -0 would lose its sign
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t value, const std::string& literal) override {
    // Also an integer that is too long for one comes as this, and would come back with a point.
    if (literal.find_first_of(".eE") == std::string::npos) return false;
    const auto written = decimalOf(literal);
    // The other is what programs write that use the same library: sometimes a digit more than needed.
    return written && (written == decimalOf(shortest(value)) || written == decimalOf(nlohmann::json(value).dump()));
  }
  bool string(std::string&) override { return true; }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(); }
  bool key(std::string& name) override { return keys_.back().insert(name).second; }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override { return false; }

 private:
  std::vector<std::set<std::string>> keys_;  // of each object and, empty, each array that is open

  bool open() {
    keys_.emplace_back();
    return keys_.size() <= kDeepest;
  }
  bool close() {
    keys_.pop_back();
    return true;
  }
};

}  // namespace

std::optional<Object> parse(std::string_view text) {
  LossCheck check;
  // A byte order mark would be swallowed, and what follows a NUL passed over.
  if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != text.npos || !nlohmann::json::sax_parse(text, &check))
    return std::nullopt;
  Object value = Object::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!value.is_object()) return std::nullopt;
  return value;
}

std::string pretty(const Object& object) {
  std::string text;
  write(text, object, 0);
  return text + "\n";
}

}  // namespace tovi::lossless
