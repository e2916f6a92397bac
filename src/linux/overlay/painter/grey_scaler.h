// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/overlay_surface.h"
#include "support/frame.h"

namespace sentrel {

/// Brings a picture of brightness to another size: each pixel is the mean of those below it, weighted by a
/// triangle that is as wide as the larger of the two grids, so that nothing flickers when it is made smaller.
/// Allocates only while it
/// grows. Every copy lies in frame memory: a library would leave rows of an onlooker's picture on the heap.
/// One thread at a time.
class GreyScaler {
 public:
  /// `width` * `height` levels without gaps, as long as the scaler lives and until the next call. The sizes
  /// of picture and result are at least 1.
  [[nodiscard]] const FrameMemory<std::uint8_t>& scale(const GreyPicture& picture, int width, int height);

 private:
  /// Where the pixels of one axis come from: `count` neighbours each, from `first` on, with weights of 1/256.
  struct Axis {
    int count = 0;
    std::vector<int> first;
    std::vector<std::uint16_t> weights;
  };
  static void measure(Axis& axis, int from, int to);

  Axis columns_;
  Axis rows_;
  FrameMemory<std::uint8_t> narrowed_;  // scaled across, not yet down
  FrameMemory<std::uint32_t> sums_;
  FrameMemory<std::uint8_t> result_;
};

}  // namespace sentrel
