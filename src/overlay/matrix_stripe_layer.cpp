// SPDX-License-Identifier: Apache-2.0
#include "overlay/matrix_stripe_layer.h"

#include <algorithm>
#include <cmath>

namespace sentrel {

namespace {

constexpr double periodAtReference = 8;
constexpr double referenceCm = 60;
constexpr double nearestCm = 30;
constexpr std::uint64_t rgbMask = 0xFFFFFF;

double opacity(double value) {
  return value > 0 ? std::min(value, 1.0) : 0;  // also for what is not a number
}

}  // namespace

double MatrixStripeLayer::period() const {
  return periodAtReference * std::sqrt(std::max(static_cast<double>(distanceCm), nearestCm) / referenceCm);
}

StripePattern MatrixStripeLayer::pattern() const {
  return {
      .period = period(),
      .rgb = static_cast<std::uint32_t>(colorArgb & rgbMask),
      .stripeAlpha = opacity(stripeAlpha),
      .layerAlpha = opacity(overlayAlpha),
  };
}

}  // namespace sentrel
