// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QRectF>

#include "look/palette.h"

class QPainter;

namespace sentrel {

/// The eye of the logo at one moment.
struct Eye {
  double openness = 0;  ///< 0 (closed, with its lashes) to 1.08
  QColor color;         ///< of iris and lid
  AppColors::Scheme scheme = AppColors::Scheme::light;
  double pupil = 5.8;  ///< its radius on the grid of `eyeUnits`

  /// So little open that the lashes are drawn.
  [[nodiscard]] bool isClosed() const { return openness <= 0.02; }
};

/// The drawing's grid is a square of so many units.
inline constexpr double eyeUnits = 64;
/// How far the eye is open when nothing happens.
inline constexpr double eyeAtRest = 0.72;

/// Paints the eye into the square `box`, antialiased. Main thread.
void paintEye(QPainter& painter, const QRectF& box, const Eye& eye);

}  // namespace sentrel
