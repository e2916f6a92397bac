// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "vision/network_shapes.h"

namespace sentrel::vision {

/// Copies pixels into wider ones and sets the channels beyond to zero.
void padChannels(const float* input, const Shape& in, float* output, const Shape& out);

enum class Clamp { none, relu };

/// The sums of two tensors of `count` values; with `relu`, negative sums become 0.
void addTensors(const float* first, const float* second, std::size_t count, Clamp clamp, float* output);

/// A pattern for `applySlopes`: the slope of each channel, repeated so often that a pass over it is long.
[[nodiscard]] std::vector<float> slopePattern(const std::vector<float>& slopes);

/// Scales every value below zero by its channel's slope.
void applySlopes(const float* input, std::size_t count, std::span<const float> pattern, float* output);

}  // namespace sentrel::vision
