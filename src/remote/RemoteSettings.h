// The pairing with the phone as it is kept in remote.json, a file that only the person can read.
#pragma once

#include <optional>
#include <string>

#include "core/Relay.h"
#include "remote/SecretKey.h"

namespace tovi {

class StateFiles;
struct Machine;

struct RemoteSettings {
  static constexpr const char* kFile = "remote.json";

  bool enabled = false;
  std::string key;  // base64url of 32 bytes; empty: not paired yet
  std::string server{defaultRelay()};
  std::string panelUrl;  // of the phone's page; empty: the default one

  RemoteSettings() = default;
  RemoteSettings(const RemoteSettings&) = default;
  RemoteSettings& operator=(const RemoteSettings& other);
  ~RemoteSettings() { wipe(key); }

  // The defaults if the file is missing, or any of its four keys is missing or of the wrong type.
  static RemoteSettings load(const StateFiles& state);

  // With permissions 0600 from the first byte. False: not saved.
  bool save(const StateFiles& state, const Machine& machine) const;

  std::optional<SecretKey> keyData() const;  // absent unless the key is exactly 32 bytes

  // What the phone opens. All that it needs follows the "#", which browsers don't send to the page's host. Absent
  // without a key or a page.
  std::optional<std::string> pairingLink() const;

  friend bool operator==(const RemoteSettings&, const RemoteSettings&) = default;
};

}  // namespace tovi
