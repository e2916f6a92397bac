// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_tint_window.h"

#include <algorithm>
#include <utility>

#include "linux/overlay/painter/scene_painter.h"

namespace sentrel {

X11TintWindow::X11TintWindow(X11Desktop& desktop)
    : window_(desktop, OverlayLayer::tint, X11OverlayWindow::Look::translucent, "sentrel tint"),
      fades_(desktop.clickThrough() == ClickThrough::newSizes) {
  if (!fades_) return;
  window_.setBackground(premultipliedTint(strongestTint));
  window_.setOpacity(0);
}

void X11TintWindow::setLevel(TintLevel level) {
  if (std::exchange(level_, level) == level) return;
  if (fades_) {
    window_.setOpacity(std::clamp(static_cast<double>(level) / strongestTint, 0.0, 1.0));
  } else {
    window_.setBackground(premultipliedTint(level));
  }
}

}  // namespace sentrel
