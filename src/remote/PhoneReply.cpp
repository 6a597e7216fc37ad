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
constexpr std::size_t kLongError = 1000;  // bytes of JSON
constexpr std::size_t kShortError = 160;  // characters; not a long one, whatever they are
constexpr std::string_view kLeftOut[] = {"savings", "savingsUnclear", "weekLine", "drawLine", "figureCaption"};
constexpr std::string_view kOfSettings[] = {"key", "type", "allowed", "value"};

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

// A list loses its last entry, anything else goes whole.
void cutLargest(Json& object) {
  auto largest = object.begin();
  std::size_t size = 0;
  for (auto at = object.begin(); at != object.end(); ++at) {
    const std::size_t own = json::compact(at.value()).size() + at.key().size();
    if (own < size) continue;
    size = own;
    largest = at;
  }
  if (largest->is_array() && largest->size() > 1) {
    largest->erase(largest->size() - 1);
  } else {
    object.erase(largest);
  }
}

void cutPanel(Json& reply, std::size_t room) {
  const auto tooBig = [room](const Json& whole) { return json::compact(whole).size() > room; };
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
  // Long names get as far as here, and the list of settings.
  while (tooBig(reply) && !panel.empty()) cutLargest(panel);
}

// An error may quote what the phone itself sent.
void cutError(Json& reply, std::size_t room) {
  const auto error = json::textAt(reply, "error");
  if (!error || json::compact(reply).size() <= room || json::compact(*error).size() <= kLongError) return;
  reply["error"] = text::firstCharacters(*error, kShortError);
}

}  // namespace

Json phoneReply(const Json& result, Json panel, std::string_view command, std::size_t room) {
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
  cutError(reply, room);
  cutPanel(reply, room);
  return reply;
}

}  // namespace tovi::RemoteCrypto
