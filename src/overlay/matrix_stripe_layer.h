// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "platform/overlay_surface.h"

namespace sentrel {

/// The privacy matrix: diagonal stripes that disturb the view from the side, wider spaced the farther the
/// person sits from the screen.
struct MatrixStripeLayer {
  std::int64_t distanceCm = 0;  ///< viewing distance
  std::uint64_t colorArgb = 0;  ///< low 32 bits 0xAARRGGBB; the alpha byte is overridden by `stripeAlpha`
  float stripeAlpha = 0;        ///< opacity of a stripe's colour
  double overlayAlpha = 0;      ///< opacity of the whole layer

  /// 8 logical pixels at 60 cm, growing with the square root of the distance, which counts as 30 cm at least.
  [[nodiscard]] double period() const;
  /// What is to be painted; opacities outside 0..1 count as the nearer end.
  [[nodiscard]] StripePattern pattern() const;
};

}  // namespace sentrel
