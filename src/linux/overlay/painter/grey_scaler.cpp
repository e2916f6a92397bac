// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/grey_scaler.h"

#include <algorithm>
#include <cmath>

namespace sentrel {

namespace {
constexpr int one = 256;
constexpr std::size_t index(int value) {
  return static_cast<std::size_t>(value);
}
}  // namespace

void GreyScaler::measure(Axis& axis, int from, int to) {
  const double step = static_cast<double>(from) / to;
  const double reach = std::max(step, 1.0);
  axis.count = std::min(static_cast<int>(std::ceil(2 * reach)) + 1, from);
  axis.first.resize(index(to));
  axis.weights.resize(index(to) * index(axis.count));
  for (int i = 0; i < to; ++i) {
    const double centre = (i + 0.5) * step - 0.5;
    const int first = std::clamp(static_cast<int>(std::ceil(centre - reach)), 0, from - axis.count);
    axis.first[index(i)] = first;
    const auto weight = [&](int k) { return std::max(0.0, 1 - std::abs(first + k - centre) / reach); };
    double total = 0;
    for (int k = 0; k < axis.count; ++k) total += weight(k);
    // Rounded so that the sum stays exactly one: a white picture remains white.
    double before = 0;
    long spent = 0;
    for (int k = 0; k < axis.count; ++k) {
      before += weight(k);
      const long reached = std::lround(one * before / total);
      axis.weights[index(i) * index(axis.count) + index(k)] = static_cast<std::uint16_t>(reached - spent);
      spent = reached;
    }
  }
}

const FrameMemory<std::uint8_t>& GreyScaler::scale(const GreyPicture& picture, int width, int height) {
  measure(columns_, picture.width, width);
  measure(rows_, picture.height, height);

  narrowed_.resize(index(width) * index(picture.height));
  for (int y = 0; y < picture.height; ++y) {
    const std::uint8_t* from = picture.levels.data() + index(y) * index(picture.width);
    std::uint8_t* to = narrowed_.data() + index(y) * index(width);
    const std::uint16_t* weight = columns_.weights.data();
    for (int x = 0; x < width; ++x) {
      const std::uint8_t* pixel = from + columns_.first[index(x)];
      std::uint32_t sum = one / 2;
      for (int k = 0; k < columns_.count; ++k) sum += std::uint32_t{*weight++} * pixel[k];
      to[x] = static_cast<std::uint8_t>(sum / one);
    }
  }

  result_.resize(index(width) * index(height));
  sums_.resize(index(width));
  for (int y = 0; y < height; ++y) {
    std::ranges::fill(sums_, std::uint32_t{one / 2});
    for (int k = 0; k < rows_.count; ++k) {
      const std::uint32_t weight = rows_.weights[index(y) * index(rows_.count) + index(k)];
      const std::uint8_t* from = narrowed_.data() + index(rows_.first[index(y)] + k) * index(width);
      for (std::size_t x = 0; x < sums_.size(); ++x) sums_[x] += weight * from[x];
    }
    std::uint8_t* to = result_.data() + index(y) * index(width);
    for (std::size_t x = 0; x < sums_.size(); ++x) to[x] = static_cast<std::uint8_t>(sums_[x] / one);
  }
  return result_;
}

}  // namespace sentrel
