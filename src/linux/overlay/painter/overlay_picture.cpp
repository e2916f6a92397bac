// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/overlay_picture.h"

namespace sentrel {

namespace {
constexpr double bannerBottomPadding = 80;  // logical pixels
}

Rect placeBanner(const OverlayPicture& banner, const Rect& screen, double scale) {
  const int left = screen.x + (screen.width - banner.body.width()) / 2;
  const int bottom = screen.y + screen.height - qRound(bannerBottomPadding * scale);
  return {left - banner.body.x(), bottom - banner.body.height() - banner.body.y(), banner.image.width(),
          banner.image.height()};
}

Rect placeHint(const OverlayPicture& hint, const Rect& screen) {
  return {screen.x + screen.width - hint.image.width(), screen.y, hint.image.width(), hint.image.height()};
}

}  // namespace sentrel
