// SPDX-License-Identifier: Apache-2.0
#include "overlay/easing.h"

#include <algorithm>

namespace sentrel {

namespace {

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

}  // namespace

double easeInOut(double t) {
  return ease(t, 0.42, 0, 0.58, 1);
}

double easeOut(double t) {
  return ease(t, 0, 0, 0.58, 1);
}

}  // namespace sentrel
