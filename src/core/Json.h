// JSON for people's files and for the wire: parsing that never throws, text that survives any bytes, and readers
// that take a value of the wrong type for a missing one.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tovi::json {

using Value = nlohmann::json;

std::optional<Value> parse(std::string_view text);        // absent: not JSON
std::optional<Value> parseObject(std::string_view text);  // absent: not JSON, or no object at the top

// Two blanks of indent, sorted keys; what isn't UTF-8 becomes U+FFFD, NaN and infinities null.
std::string pretty(const Value& value);
std::string compact(const Value& value);

// Absent for the wrong type. An integer may be written as 5.0, and must fit.
std::optional<bool> asBool(const Value& value);
std::optional<double> asNumber(const Value& value);
std::optional<std::int64_t> asInteger(const Value& value);
std::optional<std::string> asText(const Value& value);

// The member of an object under a key; null if there is none or `object` isn't one.
const Value* member(const Value& object, std::string_view key);
std::optional<bool> boolAt(const Value& object, std::string_view key);
std::optional<double> numberAt(const Value& object, std::string_view key);
std::optional<std::int64_t> integerAt(const Value& object, std::string_view key);
std::optional<std::string> textAt(const Value& object, std::string_view key);

// Rounded to so many decimals, so that the shortest text of it has no noise digits.
double rounded(double value, int decimals);

}  // namespace tovi::json
