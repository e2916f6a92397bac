// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/scene_painter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "linux/overlay/painter/stripe_coverage.h"

namespace sentrel {

namespace {

// Below this period the pattern is finer than any screen shows; it also keeps a broken value from dividing by
// zero.
constexpr double leastPeriod = 0.1;

double unit(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

std::uint32_t channel(double value) {
  return static_cast<std::uint32_t>(std::lround(value * 255));
}

// `rgb` at `alpha` under black at `veil`, premultiplied.
std::uint32_t pixel(std::uint32_t rgb, double alpha, double veil) {
  const double light = alpha * (1 - veil);
  const auto part = [&](unsigned shift) { return channel((rgb >> shift & 0xFFU) / 255.0 * light); };
  return channel(veil + light) << 24 | part(16) << 16 | part(8) << 8 | part(0);
}

double layerAlpha(const std::optional<StripePattern>& stripes) {
  return stripes ? unit(stripes->stripeAlpha) * unit(stripes->layerAlpha) : 0;
}

}  // namespace

ScenePainter::ScenePainter(const OverlayScene& scene, int width, int height, double scale) {
  if (width <= 0 || height <= 0) return;
  const double alpha = layerAlpha(scene.stripes);
  const double veil = unit(scene.veilAlpha);
  diagonal_.resize(static_cast<std::size_t>(width + height - 1), pixel(0, 0, veil));
  if (alpha <= 0) return;
  const double period = scene.stripes->period * scale;
  const StripeCoverage coverage(width, height, period > leastPeriod ? period : leastPeriod);
  for (std::size_t sum = 0; sum < diagonal_.size(); ++sum) {
    diagonal_[sum] = pixel(scene.stripes->rgb, alpha * coverage.at(static_cast<int>(sum)), veil);
  }
}

bool ScenePainter::covers(const OverlayScene& scene) {
  return layerAlpha(scene.stripes) > 0 || unit(scene.veilAlpha) > 0;
}

std::span<const std::uint32_t> ScenePainter::row(int y, int columns) const {
  return std::span(diagonal_).subspan(static_cast<std::size_t>(y), static_cast<std::size_t>(columns));
}

void ScenePainter::paint(int columns, int rows, std::span<std::uint32_t> out) const {
  auto to = out.begin();
  for (int y = 0; y < rows; ++y) to = std::ranges::copy(row(y, columns), to).out;
}

}  // namespace sentrel
