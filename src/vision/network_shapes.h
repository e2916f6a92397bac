// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "vision/network.h"

namespace sentrel::vision {

/// The size of one tensor: rows of pixels of channels, channels innermost.
struct Shape {
  int height = 0;
  int width = 0;
  int channels = 0;
  [[nodiscard]] std::size_t pixels() const {
    return static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
  }
  [[nodiscard]] std::size_t count() const { return pixels() * static_cast<std::size_t>(channels); }
  bool operator==(const Shape&) const = default;
};

/// Input rows and columns that a window needs beyond the edges, as the padding rule distributes them: the odd
/// one goes to the bottom and the right.
struct EdgePadding {
  int top = 0;
  int right = 0;
  int bottom = 0;
  int left = 0;
};

[[nodiscard]] EdgePadding edgePadding(const Operator& op, const Shape& input);

/// The shape of every tensor for an input of the given size. Throws ModelError where an operator's inputs,
/// weights and parameters do not fit each other, so that whoever executes the list can rely on them.
[[nodiscard]] std::vector<Shape> inferShapes(const Network& network, int height, int width);

}  // namespace sentrel::vision
