// SPDX-License-Identifier: Apache-2.0
#include "vision/region_sampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "support/geometry.h"
#include "vision/vector_clones.h"

namespace sentrel::vision {
namespace {

constexpr std::size_t channels = 3;
constexpr std::size_t bytesPerPixel = 4;

// One pixel of a row of sums.
using FourFloats = float __attribute__((vector_size(16)));

FourFloats pixelAt(const std::uint8_t* bytes) {
  std::uint8_t __attribute__((vector_size(4))) pixel;
  std::memcpy(&pixel, bytes, sizeof pixel);
  return __builtin_convertvector(pixel, FourFloats);
}

/// How many pixels of its larger image one of the frame's is, across and down.
Point pixelsOfLarger(const Frame& frame) {
  return {static_cast<double>(frame.larger()->width()) / frame.width(),
          static_cast<double>(frame.larger()->height()) / frame.height()};
}

SENTREL_CLONES void accumulate(const std::uint8_t* bytes, std::size_t count, float weight, float* sums) {
  for (std::size_t i = 0; i < count; ++i) sums[i] += weight * static_cast<float>(bytes[i]);
}

}  // namespace

void RegionSampler::Axis::plan(double start, double extent, int outputs, int sourceSize) {
  taps.resize(static_cast<std::size_t>(outputs));
  weights.clear();
  low = sourceSize;
  high = 0;
  const double scale = extent / outputs;
  for (int i = 0; i < outputs; ++i) {
    // Shrinking: the mean over what the output pixel covers. Enlarging: the two nearest pixels' centres.
    const double from = scale >= 1 ? start + i * scale : start + (i + 0.5) * scale - 0.5;
    const double to = scale >= 1 ? from + scale : from + 1;
    const int first = static_cast<int>(std::clamp(std::floor(from), 0.0, static_cast<double>(sourceSize)));
    const int end = static_cast<int>(std::clamp(std::ceil(to), 0.0, static_cast<double>(sourceSize)));
    Taps& tap = taps[static_cast<std::size_t>(i)];
    tap = {first, 0, weights.size()};
    for (int source = first; source < end; ++source) {
      const double covered = std::min(to, source + 1.0) - std::max(from, static_cast<double>(source));
      const auto weight = static_cast<float>(std::max(0.0, covered) / (to - from));
      weights.push_back(weight);
      ++tap.count;
    }
    if (tap.count == 0) continue;
    low = std::min(low, first);
    high = std::max(high, end);
  }
}

void RegionSampler::sample(const Frame& frame, const Region& region, int width, int height, ValueRange range,
                           std::span<float> output) {
  if (frame.larger() != nullptr && region.width < width) {
    const auto [x, y] = pixelsOfLarger(frame);
    const Region same{region.x * x, region.y * y, region.width * x, region.height * y};
    return sample(*frame.larger(), same, width, height, range, output);
  }
  horizontal_.plan(region.x, region.width, width, frame.width());
  vertical_.plan(region.y, region.height, height, frame.height());
  const auto left = static_cast<std::size_t>(horizontal_.low);
  const std::size_t span =
      horizontal_.high > horizontal_.low ? static_cast<std::size_t>(horizontal_.high) - left : 0;
  row_.resize(span * bytesPerPixel);
  const float step = (range.high - range.low) / 255.0F;
  float* to = output.data();
  for (const Axis::Taps& rows : vertical_.taps) {
    std::fill(row_.begin(), row_.end(), 0.0F);
    for (int k = 0; k < rows.count; ++k) {
      accumulate(frame.row(rows.first + k) + left * bytesPerPixel, row_.size(),
                 vertical_.weights[rows.weights + static_cast<std::size_t>(k)], row_.data());
    }
    for (const Axis::Taps& columns : horizontal_.taps) {
      FourFloats sum{};
      const float* from = row_.data() + (static_cast<std::size_t>(columns.first) - left) * bytesPerPixel;
      const float* weight = horizontal_.weights.data() + columns.weights;
      for (int k = 0; k < columns.count; ++k, from += bytesPerPixel, ++weight) {
        FourFloats pixel;
        std::memcpy(&pixel, from, sizeof pixel);
        sum += *weight * pixel;
      }
      sum = range.low + step * sum;
      *to++ = sum[2];  // BGRA to RGB
      *to++ = sum[1];
      *to++ = sum[0];
    }
  }
}

void RegionSampler::sample(const Frame& frame, const TurnedSquare& square, int side, ValueRange range,
                           std::span<float> output) {
  if (frame.larger() != nullptr && square.side < side) {
    const auto [x, y] = pixelsOfLarger(frame);
    const TurnedSquare same{square.centreX * x, square.centreY * y, square.side * x, square.angle};
    return sample(*frame.larger(), same, side, range, output);
  }
  const double scale = square.side / side;
  const auto stepX = static_cast<float>(std::cos(square.angle) * scale);
  const auto stepY = static_cast<float>(std::sin(square.angle) * scale);
  const auto half = static_cast<float>((side - 1) / 2.0);
  const float unit = (range.high - range.low) / 255.0F;
  const auto lastX = static_cast<float>(frame.width() - 1);
  const auto lastY = static_cast<float>(frame.height() - 1);
  float* to = output.data();
  for (int v = 0; v < side; ++v) {
    const float down = static_cast<float>(v) - half;
    for (int u = 0; u < side; ++u, to += channels) {
      const float right = static_cast<float>(u) - half;
      const float x = static_cast<float>(square.centreX - 0.5) + right * stepX - down * stepY;
      const float y = static_cast<float>(square.centreY - 0.5) + right * stepY + down * stepX;
      // Also false for what is not a number.
      if (!(x >= 0 && y >= 0 && x <= lastX && y <= lastY)) {
        std::fill_n(to, channels, range.low);
        continue;
      }
      const int x0 = std::min(static_cast<int>(x), std::max(0, frame.width() - 2));
      const int y0 = std::min(static_cast<int>(y), std::max(0, frame.height() - 2));
      const int x1 = std::min(x0 + 1, frame.width() - 1);
      const int y1 = std::min(y0 + 1, frame.height() - 1);
      const float fx = x - static_cast<float>(x0);
      const float fy = y - static_cast<float>(y0);
      const std::uint8_t* top = frame.row(y0);
      const std::uint8_t* bottom = frame.row(y1);
      const std::size_t a = static_cast<std::size_t>(x0) * bytesPerPixel;
      const std::size_t b = static_cast<std::size_t>(x1) * bytesPerPixel;
      const FourFloats upper = pixelAt(top + a) * (1 - fx) + pixelAt(top + b) * fx;
      const FourFloats lower = pixelAt(bottom + a) * (1 - fx) + pixelAt(bottom + b) * fx;
      const FourFloats value = range.low + unit * (upper * (1 - fy) + lower * fy);
      to[0] = value[2];  // BGRA to RGB
      to[1] = value[1];
      to[2] = value[0];
    }
  }
}

}  // namespace sentrel::vision
