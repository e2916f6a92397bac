// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRect>

namespace sentrel {

/// How far, in pixels, a shadow of this radius is drawn around its shape: the last faint pixels lie beyond
/// the radius.
[[nodiscard]] double shadowReach(double radius);

/// Draws the soft black shadow of a rounded rectangle into a premultiplied ARGB32 image: of `opacity` under
/// the shape, fading to nothing at the distance `radius`. All lengths are pixels of the image.
void drawShadow(QImage& image, const QRect& shape, double cornerRadius, double radius, double opacity);

}  // namespace sentrel
