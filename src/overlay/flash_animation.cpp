// SPDX-License-Identifier: Apache-2.0
#include "overlay/flash_animation.h"

#include <algorithm>

#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::int64_t riseMs = 400;
constexpr std::int64_t flashMs = 2 * riseMs;
constexpr std::int64_t stopMs = 300;

/// A coordinate of the curve at its parameter `s`, with the control points' coordinates `a` and `b`.
double bezier(double s, double a, double b) {
  const double r = 1 - s;
  return 3 * r * r * s * a + 3 * r * s * s * b + s * s * s;
}

/// The curve's height where its width is `t`. The width grows with the parameter, so halving finds it; 30
/// halvings are finer than a thousandth of a tint step.
double ease(double t, double x1, double y1, double x2, double y2) {
  t = std::clamp(t, 0.0, 1.0);
  double low = 0;
  double high = 1;
  for (int i = 0; i < 30; ++i) {
    const double middle = (low + high) / 2;
    (bezier(middle, x1, x2) < t ? low : high) = middle;
  }
  return bezier(high, y1, y2);
}

double easeOut(double t) {
  return ease(t, 0, 0, 0.58, 1);
}

double share(std::int64_t elapsedMs, std::int64_t durationMs) {
  return static_cast<double>(elapsedMs) / static_cast<double>(durationMs);
}

}  // namespace

double easeInOut(double t) {
  return ease(t, 0.42, 0, 0.58, 1);
}

void FlashAnimation::start(std::int64_t nowMs, Motion motion) {
  change(true, nowMs);
  motion_ = motion;
}

void FlashAnimation::stop(std::int64_t nowMs) {
  change(false, nowMs);
}

void FlashAnimation::change(bool flashing, std::int64_t nowMs) {
  fromAlpha_ = alphaAt(nowMs);
  flashing_ = flashing;
  sinceMs_ = nowMs;
}

bool FlashAnimation::isSettledAt(std::int64_t nowMs) const {
  const std::int64_t elapsed = checkedSubtract(nowMs, sinceMs_);
  return flashing_ ? motion_ == Motion::reduced && elapsed >= riseMs : elapsed >= stopMs;
}

double FlashAnimation::alphaAt(std::int64_t nowMs) const {
  const std::int64_t elapsed = checkedSubtract(nowMs, sinceMs_);
  if (!flashing_) return fromAlpha_ * (1 - easeOut(share(elapsed, stopMs)));
  if (motion_ == Motion::reduced) {
    return fromAlpha_ + (peakAlpha / 2 - fromAlpha_) * easeInOut(share(elapsed, riseMs));
  }
  const std::int64_t phase = elapsed % flashMs;
  if (phase >= riseMs) return peakAlpha * (1 - easeInOut(share(phase - riseMs, riseMs)));
  const double from = elapsed < flashMs ? fromAlpha_ : 0;
  return from + (peakAlpha - from) * easeInOut(share(phase, riseMs));
}

}  // namespace sentrel
