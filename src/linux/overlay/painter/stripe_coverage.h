// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// How much of a pixel lies under diagonal stripes that start at one diagonal of distance from the centre of
/// a width by height picture and are as wide as the gaps between them.
///
/// Stripes lie across the line x + y, so a pixel is known by the sum of its column and row. Over the pixel's
/// square, x + y is distributed as a triangle two pixels wide: two boxes folded. The covered part is thus the
/// second difference of the twofold integral of the stripes' indicator function: exact, without sampling.
class StripeCoverage {
 public:
  /// All lengths in device pixels, `period` across the stripes and above 0.
  StripeCoverage(double width, double height, double period);

  /// 0..1, for the pixel of column + row = `sum`.
  [[nodiscard]] double at(int sum) const;

 private:
  [[nodiscard]] double integral(double t) const;

  double period_ = 1;  // along x + y
  double start_ = 0;   // where, along x + y, a stripe begins
};

}  // namespace sentrel
