// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>

#include "vision/network_shapes.h"

namespace sentrel::vision {

/// Copies pixels into wider ones and sets the channels beyond to zero.
inline void padChannels(const float* input, const Shape& in, float* output, const Shape& out) {
  const auto narrow = static_cast<std::size_t>(in.channels);
  const auto wide = static_cast<std::size_t>(out.channels);
  for (std::size_t i = 0; i < in.pixels(); ++i) {
    float* pixel = std::copy_n(input + i * narrow, narrow, output + i * wide);
    std::fill_n(pixel, wide - narrow, 0.0F);
  }
}

}  // namespace sentrel::vision
