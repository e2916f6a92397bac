// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "vision/network.h"
#include "vision/network_shapes.h"

namespace sentrel::vision {

/// Where each tensor of one execution lies in a common work space, in bytes. Tensors that are never alive at
/// the same time share room; outputs stay alive to the end.
struct ArenaPlan {
  std::vector<std::size_t> offsets;
  std::size_t bytes = 0;
};

/// Every offset is a multiple of 64 and every tensor is followed by room that kernels may read beyond its
/// end.
[[nodiscard]] ArenaPlan planArena(const Network& network, const std::vector<Shape>& shapes);

}  // namespace sentrel::vision
