// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/stripe_coverage.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sentrel {

// A step of one pixel along x + y is 1/sqrt(2) pixels across the stripes. The pattern turns around the
// centre, (width + height) / 2 along x + y, and its first stripe begins one diagonal before it.
StripeCoverage::StripeCoverage(double width, double height, double period)
    : period_(period * std::numbers::sqrt2),
      start_((width + height) / 2 - std::hypot(width, height) * std::numbers::sqrt2) {
  // Any whole number of periods away is the same pattern; near zero the integral loses no digits.
  start_ = std::fmod(start_, period_);
}

double StripeCoverage::at(int sum) const {
  const double t = sum - start_;
  // Whole periods taken off likewise: the difference must not drown in large numbers.
  const double base = t - std::floor(t / period_) * period_;
  return std::clamp(integral(base + 2) - 2 * integral(base + 1) + integral(base), 0.0, 1.0);
}

// The twofold integral, from 0 to t, of a function that is 1 in the first half of each period and 0 in the
// second half.
double StripeCoverage::integral(double t) const {
  const double half = period_ / 2;
  const double whole = std::floor(t / period_);
  const double rest = t - whole * period_;
  // Each whole period leaves `half` behind in the first integral and, inside itself, 3/8 of its square.
  const double full = whole * (0.375 * period_ * period_) + half * period_ * whole * (whole - 1) / 2;
  const double part = rest < half ? rest * rest / 2 : half * half / 2 + half * (rest - half);
  return full + whole * half * rest + part;
}

}  // namespace sentrel
