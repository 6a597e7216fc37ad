#include "remote/RemoteSettings.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "core/Json.h"
#include "core/StateFiles.h"
#include "platform/Files.h"
#include "platform/Machine.h"
#include "remote/RemoteCrypto.h"

namespace tovi {

namespace {

constexpr unsigned kPrivate = 0600;

std::string percentEncoded(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
      encoded += c;
    } else {
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return encoded;
}

}  // namespace

RemoteSettings& RemoteSettings::operator=(const RemoteSettings& other) {
  if (this == &other) return *this;
  enabled = other.enabled;
  wipe(key);
  key = other.key;
  server = other.server;
  panelUrl = other.panelUrl;
  return *this;
}

RemoteSettings RemoteSettings::load(const StateFiles& state) {
  RemoteSettings settings;
  auto text = state.read(kFile);
  if (!text) return settings;
  auto file = json::parseObject(*text);
  wipe(*text);
  if (!file) return settings;
  const auto enabled = json::boolAt(*file, "enabled");
  auto key = json::textAt(*file, "key");
  const auto server = json::textAt(*file, "server");
  const auto panelUrl = json::textAt(*file, "panelUrl");
  if (enabled && key && server && panelUrl) {
    settings.enabled = *enabled;
    settings.key = *key;
    settings.server = *server;
    settings.panelUrl = *panelUrl;
  }
  if (key) {
    wipe(*key);
    wipe((*file)["key"].get_ref<std::string&>());
  }
  return settings;
}

bool RemoteSettings::save(const StateFiles& state, const Machine& machine) const {
  json::Value file{{"enabled", enabled}, {"key", key}, {"server", server}, {"panelUrl", panelUrl}};
  std::string text = json::pretty(file);
  const std::string path = state.path(kFile);
  const bool saved = state.writeDurably(text, path, kPrivate);
  if (saved) machine.files.setMode(path, kPrivate);
  wipe(text);
  wipe(file["key"].get_ref<std::string&>());
  return saved;
}

std::optional<SecretKey> RemoteSettings::keyData() const {
  auto bytes = RemoteCrypto::b64decode(key);
  if (!bytes) return std::nullopt;
  std::optional<SecretKey> found;
  if (bytes->size() == SecretKey::kSize) found.emplace(*bytes);
  wipe(*bytes);
  return found;
}

std::optional<std::string> RemoteSettings::pairingLink() const {
  const std::string_view base = panelUrl.empty() ? defaultPage() : std::string_view{panelUrl};
  if (base.empty() || !keyData()) return std::nullopt;
  std::string link = fmt::format("{}#k={}", base, key);
  if (server != defaultRelay()) link += "&s=" + percentEncoded(server);
  return link;
}

}  // namespace tovi
