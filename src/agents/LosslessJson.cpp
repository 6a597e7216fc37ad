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

// Goes through a text without keeping it, and stops at the first thing that would be lost.
class LossCheck final : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t value, const std::string& literal) override {
    const auto written = decimalOf(literal);
    return written && written == decimalOf(nlohmann::json(value).dump());
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
  // A byte order mark would be swallowed.
  if (text.starts_with("\xEF\xBB\xBF") || !nlohmann::json::sax_parse(text, &check)) return std::nullopt;
  Object value = Object::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!value.is_object()) return std::nullopt;
  return value;
}

std::string pretty(const Object& object) { return object.dump(2, ' ', false, Object::error_handler_t::replace) + "\n"; }

}  // namespace tovi::lossless
