// SPDX-License-Identifier: Apache-2.0
#include "vision/time_smoother.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace sentrel::vision {

double TimeSmoother::update(double value, std::int64_t timestampMs, double constantMs) {
  const std::int64_t elapsed = timestampMs - lastMs_;
  lastMs_ = timestampMs;
  if (!value_ || constantMs <= 0 || elapsed < 0) {
    value_ = value;
  } else {
    *value_ += (value - *value_) * (1 - std::exp(-static_cast<double>(elapsed) / constantMs));
  }
  return *value_;
}

double smoothingConstantMs(int sensitivity) {
  constexpr std::array<double, 5> constants{600, 350, 150, 60, 0};
  return constants[static_cast<std::size_t>(std::clamp(sensitivity, 1, 5) - 1)];
}

}  // namespace sentrel::vision
