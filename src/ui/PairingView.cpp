#include "ui/PairingView.h"

#include <qrencode.h>

#include <memory>

namespace tovi {

namespace {

constexpr int kMargin = 4;  // modules; the least that the standard asks for

struct CodeEnd {
  void operator()(QRcode* code) const { QRcode_free(code); }
};

}  // namespace

bool QrCode::isDark(int row, int column) const {
  if (row < 0 || column < 0 || row >= size || column >= size) return false;
  return dark[static_cast<std::size_t>(row) * static_cast<std::size_t>(size) + static_cast<std::size_t>(column)];
}

std::string QrCode::text() const {
  std::string drawn;
  for (int row = -kMargin; row < size + kMargin; row += 2) {
    for (int column = -kMargin; column < size + kMargin; ++column) {
      const bool upper = !isDark(row, column);
      const bool lower = !isDark(row + 1, column) && row + 1 < size + kMargin;
      drawn += upper && lower ? "█" : upper ? "▀" : lower ? "▄" : " ";
    }
    drawn += '\n';
  }
  return drawn;
}

std::optional<QrCode> PairingView::qr(std::string_view link) {
  const std::unique_ptr<QRcode, CodeEnd> drawn(
      QRcode_encodeData(static_cast<int>(link.size()), reinterpret_cast<const unsigned char*>(link.data()),
                        /*version: the smallest that will do*/ 0, QR_ECLEVEL_M));
  if (!drawn) return std::nullopt;
  QrCode code;
  code.size = drawn->width;
  const auto modules = static_cast<std::size_t>(drawn->width) * static_cast<std::size_t>(drawn->width);
  for (std::size_t i = 0; i < modules; ++i) code.dark.push_back((drawn->data[i] & 1) != 0);
  return code;
}

}  // namespace tovi
