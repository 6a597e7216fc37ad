// How laptop and phone speak so that the relay between them learns nothing: two topics derived from their key, and
// messages sealed for one of them (AES-256-GCM, the topic as associated data).
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "remote/SecretKey.h"

namespace tovi::RemoteCrypto {

// Decoded: a nonce, the ciphertext and a tag.
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kSmallest = kNonceSize + kTagSize;
constexpr std::size_t kLargest = 0x10000;

struct Topics {
  std::string cmd;    // to the laptop
  std::string reply;  // to the phone

  friend bool operator==(const Topics&, const Topics&) = default;
};

Topics topics(const SecretKey& key);

// 32 random bytes as base64url without padding; empty if the system has none to give.
std::string newKey();

// Base64 of either alphabet, with or without padding, blanks around it allowed.
std::optional<std::string> b64decode(std::string_view text);
std::string b64encode(std::string_view bytes);  // base64url without padding

// One line of ASCII.
std::optional<std::string> seal(std::string_view plaintext, const SecretKey& key, std::string_view topic);

// With a nonce of the caller's, which must never serve twice: for fixed examples.
std::optional<std::string> seal(std::string_view plaintext, const SecretKey& key, std::string_view topic,
                                std::string_view nonce);

// Absent for anything that wasn't sealed with this key for this topic, or isn't UTF-8 inside.
std::optional<std::string> open(std::string_view text, const SecretKey& key, std::string_view topic);

// The commands that a phone may give.
std::span<const std::string_view> allowed();
bool isAllowed(std::string_view command);

// Bytes of compact JSON that a reply may have, before its `re` and `t` are added.
constexpr std::size_t kMostReplyBytes = 2800;
// Bytes that can be sealed into a message of 4,096, the most that the public relay takes.
constexpr std::size_t kMostPlainBytes = 4096 / 4 * 3 - 12 - 16;

// What the phone is told of a command that ran: its outcome and the panel, cut down until they have room.
nlohmann::json phoneReply(const nlohmann::json& result, nlohmann::json panel, std::string_view command,
                          std::size_t room = kMostReplyBytes);

}  // namespace tovi::RemoteCrypto
