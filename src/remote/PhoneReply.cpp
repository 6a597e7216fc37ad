// What the phone is told of a command that ran. A message on the relay holds 4,096 bytes, and sealing takes its share,
// so the panel loses what the phone can best do without until the whole fits.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/Text.h"
#include "remote/RemoteCrypto.h"

namespace tovi::RemoteCrypto {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostAgents = 4;
constexpr std::size_t kShortError = 100;  // bytes
constexpr std::string_view kLeftOut[] = {"savings", "savingsUnclear", "weekLine", "drawLine", "figureCaption"};
constexpr std::string_view kOfSettings[] = {"key", "type", "allowed", "value"};

bool tooBig(const Json& reply) { return json::compact(reply).size() > kMostReplyBytes; }

bool isListOfObjects(const Json& value) {
  return value.is_array() && std::ranges::all_of(value, [](const Json& entry) { return entry.is_object(); });
}

Json reducedSettings(const Json& settings) {
  Json reduced = Json::array();
  for (const Json& entry : settings) {
    Json& row = reduced.emplace_back(Json::object());
    for (const std::string_view key : kOfSettings) {
      if (const Json* value = json::member(entry, key)) row[key] = *value;
    }
  }
  return reduced;
}

void eraseLargest(Json& object) {
  auto largest = object.begin();
  std::size_t size = 0;
  for (auto at = object.begin(); at != object.end(); ++at) {
    const std::size_t own = json::compact(at.value()).size() + at.key().size();
    if (own < size) continue;
    size = own;
    largest = at;
  }
  object.erase(largest);
}

void cutPanel(Json& reply) {
  Json& panel = reply["panel"];
  if (!tooBig(reply)) return;
  if (const auto watch = panel.find("watch"); watch != panel.end() && watch->is_array()) {
    Json on = Json::array();
    for (const Json& entry : *watch) {
      if (json::boolAt(entry, "on").value_or(false)) on.push_back(entry);
    }
    *watch = std::move(on);
  }
  if (!tooBig(reply)) return;
  if (const auto agents = panel.find("agents");
      agents != panel.end() && agents->is_array() && agents->size() > kMostAgents) {
    agents->erase(agents->begin() + kMostAgents, agents->end());
  }
  panel.erase("holds");
  for (const std::string_view key : kLeftOut) {
    if (!tooBig(reply)) return;
    panel.erase(std::string{key});
  }
  // Only long names get as far as here.
  while (tooBig(reply) && !panel.empty()) eraseLargest(panel);
}

// An error may quote what the phone itself sent.
void cutError(Json& reply) {
  while (tooBig(reply) && json::textAt(reply, "error").value_or("").size() > kShortError) {
    const std::string error = reply["error"].get<std::string>();
    reply["error"] = text::firstCharacters(error, error.size() / 2);
  }
}

}  // namespace

Json phoneReply(const Json& result, Json panel, std::string_view command) {
  Json reply = Json::object();
  for (const char* key : {"ok", "error", "next"}) {
    if (const Json* value = json::member(result, key)) reply[key] = *value;
  }
  if (!reply.contains("ok")) reply["ok"] = true;
  if (command == "schema") {
    const Json* settings = json::member(result, "settings");
    if (settings != nullptr && isListOfObjects(*settings)) reply["settings"] = reducedSettings(*settings);
  }
  reply["panel"] = panel.is_object() ? std::move(panel) : Json::object();
  cutPanel(reply);
  cutError(reply);
  return reply;
}

}  // namespace tovi::RemoteCrypto
