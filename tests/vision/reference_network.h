// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "vision/network.h"

namespace sentrel::test {

/// Executes a network by its definition, one output value after the other: slow and plain, to compare engines
/// with.
[[nodiscard]] std::vector<std::vector<float>> runReference(const vision::Network& network, int height,
                                                           int width, const std::vector<float>& input);

}  // namespace sentrel::test
