// SPDX-License-Identifier: Apache-2.0
#include "vision/elementwise.h"

#include <algorithm>

#include "vision/vector_clones.h"

namespace sentrel::vision {

void padChannels(const float* input, const Shape& in, float* output, const Shape& out) {
  const auto narrow = static_cast<std::size_t>(in.channels);
  const auto wide = static_cast<std::size_t>(out.channels);
  for (std::size_t i = 0; i < in.pixels(); ++i) {
    float* pixel = std::copy_n(input + i * narrow, narrow, output + i * wide);
    std::fill_n(pixel, wide - narrow, 0.0F);
  }
}

SENTREL_CLONES void addTensors(const float* first, const float* second, std::size_t count, Clamp clamp,
                               float* output) {
  if (clamp == Clamp::relu) {
    for (std::size_t i = 0; i < count; ++i) output[i] = std::max(first[i] + second[i], 0.0F);
  } else {
    for (std::size_t i = 0; i < count; ++i) output[i] = first[i] + second[i];
  }
}

std::vector<float> slopePattern(const std::vector<float>& slopes) {
  constexpr std::size_t enough = 256;
  std::vector<float> pattern(slopes);
  while (!slopes.empty() && pattern.size() < enough)
    pattern.insert(pattern.end(), slopes.begin(), slopes.end());
  return pattern;
}

SENTREL_CLONES void applySlopes(const float* __restrict input, std::size_t count,
                                std::span<const float> pattern, float* __restrict output) {
  const float* __restrict slope = pattern.data();
  for (std::size_t done = 0; done < count; done += pattern.size()) {
    const std::size_t part = std::min(pattern.size(), count - done);
    // Without a branch, so that the loop is vectorised: one of the two terms is zero.
    for (std::size_t i = 0; i < part; ++i)
      output[done + i] = std::max(input[done + i], 0.0F) + std::min(input[done + i], 0.0F) * slope[i];
  }
}

}  // namespace sentrel::vision
