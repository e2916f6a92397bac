// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRect>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/overlay_surface.h"
#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// Where the onlooker's picture lies on a screen, 256 by 192 logical pixels: all in logical pixels or, with
/// their `scale`, in device pixels.
[[nodiscard]] Rect placeRetro(const Rect& screen, double scale);

/// Brings a picture of brightness to another size: each pixel is the mean of those below it, weighted by a
/// triangle that is as wide as the larger of the two grids, so that nothing flickers when it is made smaller.
/// Allocates only while it grows. Every copy lies in frame memory: a library would leave rows of an
/// onlooker's picture on the heap. One thread at a time.
class GreyScaler {
 public:
  /// `width` * `height` levels without gaps, as long as the scaler lives and until the next call. The sizes
  /// of picture and result are at least 1.
  [[nodiscard]] const FrameMemory<std::uint8_t>& scale(const GreyPicture& picture, int width, int height);

 private:
  /// Where the pixels of one axis come from: `count` neighbours each, from `first` on, with weights of 1/256.
  struct Axis {
    int count = 0;
    std::vector<int> first;
    std::vector<std::uint16_t> weights;
  };
  static void measure(Axis& axis, int from, int to);

  Axis columns_;
  Axis rows_;
  FrameMemory<std::uint8_t> narrowed_;  // scaled across, not yet down
  FrameMemory<std::uint32_t> sums_;
  FrameMemory<std::uint8_t> result_;
};

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
