// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// A rectangle in whole pixels, origin at the top left.
struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool operator==(const Rect&) const = default;
};

/// A rectangle in normalised image coordinates (0..1), origin at the bottom left.
struct NormalizedRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const NormalizedRect&) const = default;
};

/// A point; its owner names the coordinate system.
struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

}  // namespace sentrel
