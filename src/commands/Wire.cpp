#include "commands/Wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/StateFiles.h"
#include "platform/Files.h"
#include "platform/Machine.h"

namespace tovi {

namespace {

constexpr std::size_t kLongestId = 64;
constexpr unsigned kReplyDirMode = 0700;

bool isIdCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

}  // namespace

std::string Wire::replyDir(const Machine& machine, const StateFiles& state) {
  std::string folder = state.path("replies");
  if (!machine.files.exists(folder)) machine.files.makeFolders(folder, kReplyDirMode);
  return folder;
}

std::string Wire::replyPath(const Machine& machine, const StateFiles& state, std::string_view id) {
  return fmt::format("{}/{}.json", replyDir(machine, state), id);
}

std::string Wire::json(const nlohmann::json& value) { return value.is_object() ? tovi::json::pretty(value) : "{}"; }
std::string Wire::compact(const nlohmann::json& value) { return value.is_object() ? tovi::json::compact(value) : "{}"; }

bool Wire::isRequestId(std::string_view id) {
  return !id.empty() && id.size() <= kLongestId && std::ranges::all_of(id, isIdCharacter);
}

std::string Wire::request(std::string_view id, std::string_view command, const nlohmann::json& args) {
  return json({{"id", id}, {"cmd", command}, {"args", args}});
}

nlohmann::json Wire::failure(std::string_view error) { return {{"ok", false}, {"error", error}}; }

}  // namespace tovi
