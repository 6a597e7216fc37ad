// Whether bytes are UTF-8, and making them so: names and arguments of processes can be any bytes.
#pragma once

#include <string>
#include <string_view>

namespace tovi {

// Overlong forms, surrogates and what lies above U+10FFFF are invalid.
bool isUtf8(std::string_view bytes);

// Each longest beginning of a character that breaks off, and each stray byte, becomes one U+FFFD.
std::string repairUtf8(std::string_view bytes);

}  // namespace tovi
