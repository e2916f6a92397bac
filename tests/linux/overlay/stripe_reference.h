// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel::test {

/// How much of one device pixel lies under the stripes, found by sampling a drawing of rectangles in a turned
/// frame: slow, and independent of the painter's arithmetic. `period` is in logical pixels.
[[nodiscard]] double sampledStripeCoverage(int width, int height, double scale, double period, int x, int y);

}  // namespace sentrel::test
