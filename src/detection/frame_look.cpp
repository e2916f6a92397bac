// SPDX-License-Identifier: Apache-2.0
#include "detection/frame_look.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace sentrel {

namespace {

// Pixels that are looked at, and the parts that are compared: the mean of a part hides the noise of its
// pixels, which in the dark is larger than what a covered camera shows.
constexpr int columns = 80;
constexpr int rows = 60;
constexpr int partsAcross = 8;
constexpr int partsDown = 6;

// Of FNV-1a.
constexpr std::uint64_t sumBegin = 14695981039346656037U;
constexpr std::uint64_t sumFactor = 1099511628211U;

std::uint64_t added(std::uint64_t sum, std::uint64_t bytes) {
  return (sum ^ bytes) * sumFactor;
}

std::uint64_t sumOfAll(const Frame& frame) {
  std::uint64_t sum = sumBegin;
  for (int y = 0; y < frame.height(); ++y) {
    const std::uint8_t* row = frame.row(y);
    for (int i = 0; i + 8 <= frame.stride(); i += 8) {
      std::uint64_t bytes = 0;
      std::memcpy(&bytes, row + i, sizeof bytes);
      sum = added(sum, bytes);
    }
  }
  return sum;
}

struct Mean {
  float sum = 0;
  int count = 0;
  void add(float value) {
    sum += value;
    ++count;
  }
  [[nodiscard]] std::uint8_t value() const {
    return static_cast<std::uint8_t>(count > 0 ? sum / static_cast<float>(count) : 0);
  }
};

/// The face without its edges and hair, and what is beside and above it; shoulders are left out.
struct Around {
  explicit Around(const NormalizedRect& box)
      : left(box.x), right(box.x + box.width), top(1 - box.y - box.height), bottom(1 - box.y) {}

  void add(double x, double y, float brightness) {
    const double insideX = (x - left) / (right - left);
    const double insideY = (y - top) / (bottom - top);
    if (insideX > 0.2 && insideX < 0.8 && insideY > 0.2 && insideY < 0.9) face.add(brightness);
    const bool isNear = insideX > -0.3 && insideX < 1.3 && insideY > -0.5;
    if (y < bottom && !isNear) around.add(brightness);
  }

  double left, right, top, bottom;  // shares of the picture, from its top left corner
  Mean face;
  Mean around;
};

}  // namespace

std::optional<FrameLook> FrameMeter::measure(const Frame& frame, const NormalizedRect* face) {
  if (frame.width() < leastWidth || frame.height() < leastHeight) return std::nullopt;
  std::array<float, static_cast<std::size_t>(partsAcross) * partsDown> parts{};
  std::optional<Around> around;
  if (face != nullptr && face->width > 0 && face->height > 0) around.emplace(*face);
  std::uint64_t sparse = sumBegin;
  for (int row = 0; row < rows; ++row) {
    const int y = (2 * row + 1) * frame.height() / (2 * rows);
    const std::uint8_t* pixels = frame.row(y);
    for (int column = 0; column < columns; ++column) {
      const int x = (2 * column + 1) * frame.width() / (2 * columns);
      const std::uint8_t* pixel = pixels + static_cast<std::ptrdiff_t>(x) * 4;
      // Blue, green and red by their share in what the eye sees.
      const int weighted = 29 * pixel[0] + 150 * pixel[1] + 77 * pixel[2];
      const float brightness = static_cast<float>(weighted) / 256;
      std::uint32_t bytes = 0;
      std::memcpy(&bytes, pixel, sizeof bytes);
      sparse = added(sparse, bytes);
      const int part = row * partsDown / rows * partsAcross + column * partsAcross / columns;
      parts[static_cast<std::size_t>(part)] += brightness;
      if (around) around->add((x + 0.5) / frame.width(), (y + 0.5) / frame.height(), brightness);
    }
  }

  FrameLook look;
  constexpr float pixelsOfPart = static_cast<float>(columns) * rows / (partsAcross * partsDown);
  for (const float part : parts) look.brightness += part / pixelsOfPart / parts.size();
  float squares = 0;
  for (const float part : parts) squares += std::pow(part / pixelsOfPart - look.brightness, 2.0F);
  look.unevenness = std::sqrt(squares / parts.size());
  if (around && around->face.count > 0 && around->around.count > 0)
    look.contrast = {around->face.value(), around->around.value()};

  const bool mayBeSame = sparse == sparseSum_;
  sparseSum_ = sparse;
  const auto whole = mayBeSame ? std::optional(sumOfAll(frame)) : std::nullopt;
  look.isSameAsBefore = mayBeSame && whole == wholeSum_;
  wholeSum_ = whole;
  return look;
}

}  // namespace sentrel
