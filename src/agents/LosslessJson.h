// JSON of other programs, read only where it can be written back and still say the same.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tovi::lossless {

using Object = nlohmann::json;  // keeps keys sorted; nlohmann::ordered_json would keep them in the file's order

// Absent: no JSON object, or one that would not survive: with comments, trailing commas, a key twice in one object, a
// number that no double and no 64-bit integer holds exactly, an integer -0, text that isn't UTF-8, or nested beyond all
// reason.
std::optional<Object> parse(std::string_view text);

// Two blanks of indent, slashes as they are, no more digits than a number needs, a final line break.
std::string pretty(const Object& object);

}  // namespace tovi::lossless
