// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/scene_painter.h"

#include <QColor>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "look/palette.h"

namespace sentrel {

namespace {

// Below this period the pattern is finer than any screen shows; it also keeps a broken value from dividing by
// zero.
constexpr double leastPeriod = 0.1;

/// How much of a pixel lies under diagonal stripes that start at one diagonal of distance from the centre of
/// a width by height picture and are as wide as the gaps between them.
///
/// Stripes lie across the line x + y, so a pixel is known by the sum of its column and row. Over the pixel's
/// square, x + y is distributed as a triangle two pixels wide: two boxes folded. The covered share is thus
/// the second difference of the twofold integral of the stripes' indicator function: exact, without sampling.
class StripeCoverage {
 public:
  /// All lengths in device pixels, `period` across the stripes and above 0.
  StripeCoverage(double width, double height, double period)
      // A step of one pixel along x + y is 1/sqrt(2) pixels across the stripes. The pattern turns around the
      // centre, (width + height) / 2 along x + y, and its first stripe begins one diagonal before it. Any
      // whole number of periods away is the same pattern; near zero the integral loses no digits.
      : period_(period * std::numbers::sqrt2),
        start_(std::fmod((width + height) / 2 - std::hypot(width, height) * std::numbers::sqrt2, period_)) {}

  /// 0..1, for the pixel of column + row = `sum`.
  [[nodiscard]] double at(int sum) const {
    const double t = sum - start_;
    // Whole periods taken off likewise: the difference must not drown in large numbers.
    const double base = t - std::floor(t / period_) * period_;
    return std::clamp(integral(base + 2) - 2 * integral(base + 1) + integral(base), 0.0, 1.0);
  }

 private:
  /// The twofold integral, from 0 to t, of a function that is 1 in the first half of each period and 0 in the
  /// second half.
  [[nodiscard]] double integral(double t) const {
    const double half = period_ / 2;
    const double whole = std::floor(t / period_);
    const double rest = t - whole * period_;
    // Each whole period leaves `half` behind in the first integral and, inside itself, 3/8 of its square.
    const double full = whole * (0.375 * period_ * period_) + half * period_ * whole * (whole - 1) / 2;
    const double begun = rest < half ? rest * rest / 2 : half * half / 2 + half * (rest - half);
    return full + whole * half * rest + begun;
  }

  double period_;  // along x + y
  double start_;   // where, along x + y, a stripe begins
};

double unit(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

/// `rgb` at `alpha` under black at `veil`, premultiplied.
std::uint32_t pixel(std::uint32_t rgb, double alpha, double veil) {
  const auto byte = [](double value) { return static_cast<std::uint32_t>(std::lround(value * 255)); };
  const double light = alpha * (1 - veil);
  const auto channel = [&](unsigned shift) { return byte((rgb >> shift & 0xFFU) / 255.0 * light) << shift; };
  return byte(veil + light) << 24 | channel(16) | channel(8) | channel(0);
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

std::uint32_t premultipliedTint(TintLevel level) {
  const QColor& color = fixed_colors::alertTint;
  return qPremultiply(qRgba(color.red(), color.green(), color.blue(), std::clamp(level, 0, 255)));
}

}  // namespace sentrel
