#include "ui/Island.h"

#include <utility>

namespace tovi {

void Island::setEnabled(bool enabled) {
  enabled_ = enabled;
  if (!enabled) collapse();
}

void Island::announce(std::string title, std::string subtitle, bool glow, Seconds span) {
  if (!enabled_) return;
  face = {std::move(title), std::move(subtitle), glow, /*controls=*/false, /*open=*/true};
  collapse_ = queue_.after(span, [this] { collapse(); });
}

void Island::collapse() {
  collapse_.reset();
  face.update([](Face& shown) { shown.open = false; });
}

}  // namespace tovi
