#include "remote/RemoteCrypto.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include "core/Text.h"
#include "platform/Utf8.h"

namespace tovi {

void wipe(std::string& text) {
  OPENSSL_cleanse(text.data(), text.size());
  text.clear();
}

SecretKey::SecretKey(std::string_view bytes) {
  std::ranges::transform(bytes.substr(0, kSize), bytes_.begin(), [](char c) { return static_cast<unsigned char>(c); });
}

SecretKey::~SecretKey() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::string_view kAllowed[] = {"panel", "mode",  "release",    "preset", "watch", "track",  "sleep_now",
                                         "set",   "power", "power_test", "schema", "wake",  "wake_at"};
static_assert(std::size(kAllowed) == 13);
constexpr std::size_t kTopicDigits = 24;

struct ContextEnd {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, ContextEnd>;

const unsigned char* bytesOf(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }
unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

std::string topicFor(std::string_view label, const SecretKey& key) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  const std::unique_ptr<EVP_MD_CTX, ContextEnd> context(EVP_MD_CTX_new());
  EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
  EVP_DigestUpdate(context.get(), label.data(), label.size());
  EVP_DigestUpdate(context.get(), key.data(), SecretKey::kSize);
  EVP_DigestFinal_ex(context.get(), digest.data(), nullptr);
  std::string topic = "tovi-";
  for (std::size_t i = 0; i < kTopicDigits / 2; ++i) topic += fmt::format("{:02x}", digest[i]);
  return topic;
}

int valueOf(char c) {
  if (c == '+') c = '-';
  if (c == '/') c = '_';
  const auto at = kAlphabet.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string_view withoutPadding(std::string_view text) {
  text = text::trimmed(text);
  for (int i = 0; i < 2 && text.ends_with('='); ++i) text.remove_suffix(1);
  return text;
}

}  // namespace

namespace RemoteCrypto {

Topics topics(const SecretKey& key) { return {topicFor("tovi/cmd/v1", key), topicFor("tovi/reply/v1", key)}; }

std::string newKey() {
  std::string bytes(SecretKey::kSize, '\0');
  if (RAND_priv_bytes(bytesOf(bytes), static_cast<int>(bytes.size())) != 1) return {};
  std::string text = b64encode(bytes);
  wipe(bytes);
  return text;
}

std::string b64encode(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() * 4 + 2) / 3);
  std::uint32_t bits = 0;
  int count = 0;
  for (const char byte : bytes) {
    bits = (bits << 8) | static_cast<unsigned char>(byte);
    for (count += 8; count >= 6; count -= 6) text += kAlphabet[(bits >> (count - 6)) & 0x3F];
  }
  if (count > 0) text += kAlphabet[(bits << (6 - count)) & 0x3F];
  return text;
}

std::optional<std::string> b64decode(std::string_view text) {
  const std::string_view whole = text::trimmed(text);
  text = withoutPadding(text);
  // No more padding than belongs there; less is as good as all of it.
  if (text.size() % 4 == 1 || whole.size() - text.size() > (4 - text.size() % 4) % 4) return std::nullopt;
  std::string bytes;
  bytes.reserve(text.size() * 3 / 4);
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const int value = valueOf(c);
    if (value < 0) {
      wipe(bytes);
      return std::nullopt;
    }
    bits = (bits << 6) | static_cast<std::uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>((bits >> count) & 0xFF);
    }
  }
  return bytes;
}

std::optional<std::string> seal(std::string_view plaintext, const SecretKey& key, std::string_view topic) {
  std::string nonce(kNonceSize, '\0');
  if (RAND_bytes(bytesOf(nonce), static_cast<int>(nonce.size())) != 1) return std::nullopt;
  return seal(plaintext, key, topic, nonce);
}

std::optional<std::string> seal(std::string_view plaintext, const SecretKey& key, std::string_view topic,
                                std::string_view nonce) {
  if (nonce.size() != kNonceSize || plaintext.size() > kLargest - kSmallest) return std::nullopt;
  std::string sealed(nonce);
  sealed.resize(kSmallest + plaintext.size());
  unsigned char* body = bytesOf(sealed) + kNonceSize;
  const CipherContext context(EVP_CIPHER_CTX_new());
  int count = 0;
  if (!context || EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), bytesOf(nonce)) != 1 ||
      EVP_EncryptUpdate(context.get(), nullptr, &count, bytesOf(topic), static_cast<int>(topic.size())) != 1 ||
      EVP_EncryptUpdate(context.get(), body, &count, bytesOf(plaintext), static_cast<int>(plaintext.size())) != 1 ||
      EVP_EncryptFinal_ex(context.get(), body + plaintext.size(), &count) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize), body + plaintext.size()) !=
          1) {
    return std::nullopt;
  }
  return b64encode(sealed);
}

std::optional<std::string> open(std::string_view text, const SecretKey& key, std::string_view topic) {
  // The size is told by the length, before a stranger's text costs anything.
  const std::size_t size = withoutPadding(text).size() * 3 / 4;
  if (size < kSmallest || size > kLargest) return std::nullopt;
  auto sealed = b64decode(text);
  if (!sealed) return std::nullopt;
  const std::size_t length = sealed->size() - kSmallest;
  const unsigned char* body = bytesOf(*sealed) + kNonceSize;
  std::string plaintext(length, '\0');
  const CipherContext context(EVP_CIPHER_CTX_new());
  int count = 0;
  if (!context || EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), bytesOf(*sealed)) != 1 ||
      EVP_DecryptUpdate(context.get(), nullptr, &count, bytesOf(topic), static_cast<int>(topic.size())) != 1 ||
      EVP_DecryptUpdate(context.get(), bytesOf(plaintext), &count, body, static_cast<int>(length)) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize),
                          bytesOf(*sealed) + kNonceSize + length) != 1 ||
      EVP_DecryptFinal_ex(context.get(), bytesOf(plaintext) + length, &count) != 1 || !isUtf8(plaintext)) {
    return std::nullopt;
  }
  return plaintext;
}

std::span<const std::string_view> allowed() { return kAllowed; }

bool isAllowed(std::string_view command) { return std::ranges::find(kAllowed, command) != std::end(kAllowed); }

}  // namespace RemoteCrypto
}  // namespace tovi
