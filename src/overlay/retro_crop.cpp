// SPDX-License-Identifier: Apache-2.0
#include "overlay/retro_crop.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace sentrel {

namespace {

constexpr double growth = 0.65;

struct Range {
  int begin;
  int end;
};

/// Where the grown side of a box lies in `size` pixels; empty for what is no number.
Range grownRange(double begin, double length, int size) {
  const double first = std::floor((begin - length * growth) * size);
  const double last = std::ceil((begin + length * (1 + growth)) * size);
  if (!std::isfinite(first) || !std::isfinite(last)) return {0, 0};
  return {static_cast<int>(std::clamp<double>(first, 0, size)),
          static_cast<int>(std::clamp<double>(last, 0, size))};
}

}  // namespace

Rect retroCrop(int frameWidth, int frameHeight, const std::optional<NormalizedRect>& face) {
  const Rect whole{0, 0, frameWidth, frameHeight};
  if (!face || !(face->width > 0) || !(face->height > 0)) return whole;
  const Range columns = grownRange(face->x, face->width, frameWidth);
  // The box is measured from the bottom, the frame's rows from the top.
  const Range rows = grownRange(1 - face->y - face->height, face->height, frameHeight);
  if (columns.begin >= columns.end || rows.begin >= rows.end) return whole;
  return {columns.begin, rows.begin, columns.end - columns.begin, rows.end - rows.begin};
}

void copyGrey(const Frame& frame, const Rect& part, GreyPicture& picture) {
  constexpr int bytesPerPixel = 4;
  picture.width = part.width;
  picture.height = part.height;
  picture.levels.reserve(static_cast<std::size_t>(frame.width()) * static_cast<std::size_t>(frame.height()));
  picture.levels.resize(static_cast<std::size_t>(part.width) * static_cast<std::size_t>(part.height));
  std::uint8_t* to = picture.levels.begin();
  for (int y = part.y; y < part.y + part.height; ++y) {
    const std::uint8_t* pixel = frame.row(y) + static_cast<std::ptrdiff_t>(part.x) * bytesPerPixel;
    for (int x = 0; x < part.width; ++x, pixel += bytesPerPixel) {
      // Luminance of BT.709, in 256ths.
      *to++ = static_cast<std::uint8_t>((19U * pixel[0] + 183U * pixel[1] + 54U * pixel[2]) >> 8U);
    }
  }
}

}  // namespace sentrel
