// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRect>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "linux/overlay/painter/grey_scaler.h"
#include "platform/overlay_surface.h"
#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// Where the onlooker's picture lies on a screen, 256 by 192 logical pixels: all in logical pixels or, with
/// their `scale`, in device pixels.
[[nodiscard]] Rect placeRetro(const Rect& screen, double scale);

/// Paints the onlooker's picture: grey, green, scan lines, and over them brackets, caption, tag and border.
/// What does not change is drawn once; a frame is plain arithmetic on pixels. Needs a QGuiApplication. Main
/// thread.
class RetroPainter {
 public:
  /// `scale` is device pixels to a logical one.
  explicit RetroPainter(double scale);

  [[nodiscard]] double scale() const { return scale_; }
  // Device pixels.
  [[nodiscard]] int width() const { return decorations_.width(); }
  [[nodiscard]] int height() const { return decorations_.height(); }

  /// Paints everything but the dot: `width()` * `height()` opaque pixels without gaps. Null is black.
  void paint(const GreyPicture* picture, std::span<std::uint32_t> out);

  /// The dot, premultiplied, and where it lies.
  [[nodiscard]] QImage dot(BlinkLevel level) const;
  [[nodiscard]] const QRect& dotPlace() const { return dotPlace_; }

 private:
  void drawDecorations();
  void paintPicture(const GreyPicture& picture, std::span<std::uint32_t> out);

  double scale_;
  QImage decorations_;
  QRect dotPlace_;
  QRectF dotCircle_;                      // within the place
  std::vector<std::uint32_t> lineLight_;  // of each row, in 256ths
  std::array<std::uint32_t, 256> green_{};
  GreyScaler scaler_;
};

}  // namespace sentrel
