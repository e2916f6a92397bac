// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRect>

#include "support/geometry.h"

namespace sentrel {

/// A small finished picture of the overlay, premultiplied, and where it belongs.
struct OverlayPicture {
  QImage image;
  QRect body;  ///< the part of the image, in device pixels, that is placed; around it lies its shadow
};

/// Where the image goes on a screen whose rectangle is in device pixels, so that the body stands centred
/// above the lower edge (the banner) or in the upper right corner (the hint).
[[nodiscard]] Rect placeBanner(const OverlayPicture& banner, const Rect& screen, double scale);
[[nodiscard]] Rect placeHint(const OverlayPicture& hint, const Rect& screen);

}  // namespace sentrel
