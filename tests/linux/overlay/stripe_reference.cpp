// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/stripe_reference.h"

#include <cmath>
#include <numbers>

namespace sentrel::test {

double sampledStripeCoverage(int width, int height, double scale, double period, int x, int y) {
  constexpr int side = 96;
  const double w = width / scale;
  const double h = height / scale;
  const double diagonal = std::sqrt(w * w + h * h);
  const double angle = 45 * std::numbers::pi / 180;
  int covered = 0;
  for (int i = 0; i < side; ++i) {
    for (int j = 0; j < side; ++j) {
      // Rows of samples are shifted against each other, or whole diagonals of them would change at once.
      const double dx = (x + (i + (j + 0.5) / side) / side) / scale - w / 2;
      const double dy = (y + (j + 0.5) / side) / scale - h / 2;
      // The sample in the frame turned by the angle, y pointing down.
      const double u = dx * std::cos(angle) + dy * std::sin(angle);
      const double v = dy * std::cos(angle) - dx * std::sin(angle);
      if (std::abs(v) > diagonal) continue;
      const double into = std::fmod(u + diagonal, period);
      if (into >= 0 && into < period / 2) ++covered;
    }
  }
  return static_cast<double>(covered) / (side * side);
}

}  // namespace sentrel::test
