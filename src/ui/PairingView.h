// What the person points the phone's camera at: the pairing link as a QR code, for a window or a terminal to draw.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovi {

struct QrCode {
  int size = 0;            // modules on each side, without a margin
  std::vector<bool> dark;  // row by row from the top, size × size

  bool isDark(int row, int column) const;  // outside of the code: light

  // Two rows a line in half blocks, with the margin that cameras need. Light is drawn, so it is meant for light text
  // on a dark ground.
  std::string text() const;

  friend bool operator==(const QrCode&, const QrCode&) = default;
};

namespace PairingView {

// Absent for an empty text and for one that is too long for any code (some 2,900 bytes).
std::optional<QrCode> qr(std::string_view link);

}  // namespace PairingView
}  // namespace tovi
