// SPDX-License-Identifier: Apache-2.0
#include "service/viewing_distance.h"

#include <cstdlib>

#include "support/fatal.h"

namespace sentrel {

namespace {

// A face one tenth of the image wide is taken to be 100 cm away.
constexpr float widthTimesDistance = 10;
constexpr std::int64_t hysteresisCm = 11;

/// `value` kept within `low` and `high`; what is not a number counts as `low`.
template <class T>
T within(T low, T value, T high) {
  if (!(value > low)) return low;
  return value > high ? high : value;
}

}  // namespace

std::int64_t matrixDistanceFor(float boundingBoxRatio, float coefficient) {
  const float distance = within(20.0F, widthTimesDistance / boundingBoxRatio, 200.0F);
  const double scaled = static_cast<double>(distance) * static_cast<double>(coefficient);
  return static_cast<std::int64_t>(within(20.0, scaled, 300.0));
}

bool isNewMatrixDistance(std::int64_t cm, std::int64_t currentCm) {
  return std::abs(checkedSubtract(cm, currentCm)) >= hysteresisCm;
}

}  // namespace sentrel
