// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <numbers>

namespace sentrel::test {

/// How much of a pixel lies under stripes, by drawing them as given, in a turned frame, and sampling.
inline double sampledStripeCoverage(int width, int height, double scale, double period, int x, int y) {
  constexpr int side = 96;
  const double diagonal = std::hypot(width, height) / scale;
  int covered = 0;
  for (int i = 0; i < side; ++i) {
    for (int j = 0; j < side; ++j) {
      // Rows of samples are shifted against each other, or whole diagonals of them would change at once.
      const double dx = (x + (i + (j + 0.5) / side) / side - width / 2.0) / scale;
      const double dy = (y + (j + 0.5) / side - height / 2.0) / scale;
      const double into = std::fmod((dx + dy) * std::numbers::sqrt2 / 2 + diagonal, period);
      if (into < period / 2) ++covered;
    }
  }
  return static_cast<double>(covered) / (side * side);
}

}  // namespace sentrel::test
