// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QPoint>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/overlay_surface.h"
#include "support/geometry.h"

namespace sentrel {

/// Paints stripes and veil, the layers of a scene that cover its whole screen, as premultiplied ARGB32.
///
/// At 45 degrees a stripe lies along x + y = constant: every row of the picture is the row above it, moved by
/// one pixel. So the painter computes one line of width + height - 1 pixels by exact coverage and copies it
/// row by row, which costs as much as moving the memory. The veil is blended into that line, so it is free.
/// One thread at a time.
class ScenePainter {
 public:
  /// `width` and `height` are device pixels, `scale` device pixels to a logical one.
  ScenePainter(const OverlayScene& scene, int width, int height, double scale);

  /// Whether the scene puts anything on the whole screen. When it does not there is nothing to paint.
  [[nodiscard]] static bool covers(const OverlayScene& scene);

  /// `columns` pixels of row `y`, as long as the painter lives; within the bounds that `paint` names.
  [[nodiscard]] std::span<const std::uint32_t> row(int y, int columns) const;

  /// Paints the upper left `columns` by `rows` pixels, without gaps. They may reach beyond the right edge, as
  /// far as columns + rows <= width + height: there lie the columns that later rows will show.
  void paint(int columns, int rows, std::span<std::uint32_t> out) const;

 private:
  std::vector<std::uint32_t> diagonal_;
};

/// The alert's tint as a premultiplied ARGB32 pixel.
[[nodiscard]] std::uint32_t premultipliedTint(TintLevel level);

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

/// Paints the permanent hint with its padding, in the upper right corner of `area`, which is what panels
/// leave of the screen: an eye, and beside it the shortcut's keys, where there are any. Otherwise as
/// `paintBanner`.
[[nodiscard]] Notice paintHint(const Rect& area, double scale, const std::string& keys);

}  // namespace sentrel
