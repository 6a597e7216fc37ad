// The key that the laptop shares with its phone, and the care that few copies of it stay behind in memory.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace tovi {

// Overwrites the text in a way that the compiler can't leave out, then empties it.
void wipe(std::string& text);

class SecretKey {
 public:
  static constexpr std::size_t kSize = 32;  // bytes, for AES-256

  explicit SecretKey(std::string_view bytes);  // of exactly that size
  SecretKey(const SecretKey&) = default;
  SecretKey& operator=(const SecretKey&) = default;
  ~SecretKey();

  const unsigned char* data() const { return bytes_.data(); }

  friend bool operator==(const SecretKey&, const SecretKey&) = default;

 private:
  std::array<unsigned char, kSize> bytes_{};
};

}  // namespace tovi
