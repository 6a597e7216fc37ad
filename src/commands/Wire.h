// The channel between the application and the short-lived processes that ask it for something: a request goes out
// as a broadcast, its reply comes back as a file named by the request's id.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace tovi {

class StateFiles;
struct Machine;

namespace Wire {

constexpr std::string_view kRequestName = "com.norvane.Tovi.request";

// The folder of the replies, made at the first use; private to the person, as replies tell what they work on.
std::string replyDir(const Machine& machine, const StateFiles& state);
std::string replyPath(const Machine& machine, const StateFiles& state, std::string_view id);

// Only the person reads replies.
constexpr unsigned kReplyMode = 0600;

// A JSON object as text, indented with sorted keys, or on one line; "{}" for anything that isn't an object.
std::string json(const nlohmann::json& value);
std::string compact(const nlohmann::json& value);

// 1 to 64 letters, digits and "-" of ASCII: it becomes a file name, so it must not lead anywhere.
bool isRequestId(std::string_view id);

std::string request(std::string_view id, std::string_view command, const nlohmann::json& args);

nlohmann::json failure(std::string_view error);
constexpr std::string_view kTooLarge = "That request is too large to send to Tovi.";

}  // namespace Wire
}  // namespace tovi
