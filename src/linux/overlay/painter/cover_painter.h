// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>

#include "linux/overlay/painter/scene_painter.h"
#include "platform/overlay_surface.h"
#include "support/geometry.h"

namespace sentrel {

/// The colour that hides the screen: the ground of windows in the dark palette.
[[nodiscard]] QColor coverGround(const Cover& cover);

/// What stands on that ground.
struct CoverPanel {
  Notice notice;  ///< opaque
  Rect button;    ///< device pixels of the notice
};

/// Paints the eye at rest, the words and the button, in the optical centre of the screen, smaller where the
/// screen has no room for them. Otherwise as `paintBanner`.
[[nodiscard]] CoverPanel paintCover(const Rect& screen, double scale, const Cover& cover);

}  // namespace sentrel
