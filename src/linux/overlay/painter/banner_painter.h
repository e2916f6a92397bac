// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/painter/overlay_picture.h"

namespace sentrel {

enum class BannerStyle {
  translucent,  ///< as designed, with its shadow, where windows are composed
  opaque        ///< without shadow and with nothing to see through, but for the cut corners
};

/// Paints the alert banner. `scale` is device pixels to a logical one. Needs a QGuiApplication. Main thread.
[[nodiscard]] OverlayPicture paintBanner(double scale, BannerStyle style);

}  // namespace sentrel
