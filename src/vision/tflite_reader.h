// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>

#include "vision/network.h"

namespace sentrel::vision {

/// Reads a .tflite file into our operator list: float and half-float weights, and the operators of
/// convolutional networks. Any other content, and any damage that shows, throws ModelError.
[[nodiscard]] Network readTflite(std::span<const std::byte> file);

}  // namespace sentrel::vision
