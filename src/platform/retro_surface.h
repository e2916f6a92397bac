// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "support/frame.h"

namespace sentrel {

/// A picture of brightness: rows from top to bottom without gaps, 0 black to 255 white.
struct GreyPicture {
  int width = 0;
  int height = 0;
  FrameMemory<std::uint8_t> levels;
};

/// How bright the blinking dot is, in steps.
using BlinkLevel = int;
inline constexpr BlinkLevel brightestBlink = 16;

/// The onlooker's picture as an old green monitor shows it: 256 x 192 logical pixels, opaque, click-through,
/// above the overlay, 20 from the right and 80 from the lower edge of the main screen (the first where none
/// is main), which it follows. Destroying it takes it off the screen. Main thread.
class RetroSurface {
 public:
  virtual ~RetroSurface() = default;
  /// Fitted into the surface, its proportions kept; null shows black. The picture must not change any more.
  virtual void present(std::shared_ptr<const GreyPicture> picture) = 0;
  /// 0 (nothing) to `brightestBlink`. Costs a fraction of a `present`.
  virtual void setBlink(BlinkLevel level) = 0;
};

}  // namespace sentrel
