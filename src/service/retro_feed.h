// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// Who shows the onlooker's picture during an alert. Main thread.
class RetroFeed {
 public:
  virtual ~RetroFeed() = default;
  /// Shows the part of the frame around `faceRect` (normalised, origin at the bottom left), or all of it.
  virtual void renderFrame(const FrameRef& pixelBuffer, const std::optional<NormalizedRect>& faceRect) = 0;
  /// Takes the picture off the screen and forgets it; harmless when there is none.
  virtual void hide() = 0;
};

}  // namespace sentrel
