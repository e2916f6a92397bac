// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QPoint>

#include "support/geometry.h"

namespace sentrel {

/// A small finished picture of the overlay, in device pixels.
struct Notice {
  QImage image;  ///< premultiplied ARGB32
  QPoint at;     ///< its upper left corner, in the coordinates of the screen that was given
};

enum class BannerStyle {
  translucent,  ///< as designed, with its shadow, where windows are composed
  opaque        ///< without shadow and with nothing to see through, but for the cut corners
};

/// Paints the alert banner, which stands centred above the lower edge of the screen. `screen` is in device
/// pixels, `scale` device pixels to a logical one. Needs a QGuiApplication. Main thread.
[[nodiscard]] Notice paintBanner(const Rect& screen, double scale, BannerStyle style);

/// Paints the permanent hint with its padding, in the upper right corner of the screen: an eye and, when
/// `keys`, the shortcut beside it. Otherwise as `paintBanner`.
[[nodiscard]] Notice paintHint(const Rect& screen, double scale, bool keys);

}  // namespace sentrel
