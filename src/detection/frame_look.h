// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// How a camera's picture looks, in numbers. Brightness is 0 (black) to 255.
struct FrameLook {
  /// The main face, and what is above the chin around it.
  struct Contrast {
    std::uint8_t face = 0;
    std::uint8_t around = 0;
    bool operator==(const Contrast&) const = default;
  };

  float brightness = 0;              ///< of the whole picture
  float unevenness = 0;              ///< how far its parts differ: the standard deviation of 48 of them
  bool isSameAsBefore = false;       ///< its bytes are those of the picture before
  std::optional<Contrast> contrast;  ///< where a face is known
  bool operator==(const FrameLook&) const = default;
};

/// Measures pictures one after another. It looks at one pixel of 64, and at all of them only where those are
/// the same as before. It keeps no picture, only two sums of the last one. One thread.
class FrameMeter {
 public:
  /// The least picture that can be measured, in pixels.
  static constexpr int leastWidth = 160;
  static constexpr int leastHeight = 120;

  /// `face` is the main face's box, or null. Nothing of a picture that is too small.
  std::optional<FrameLook> measure(const Frame& frame, const NormalizedRect* face);

 private:
  std::uint64_t sparseSum_ = 0;
  std::optional<std::uint64_t> wholeSum_;  // computed only where the sparse sum came twice
};

}  // namespace sentrel
