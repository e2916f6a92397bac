// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "platform/retro_surface.h"
#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// The part of a frame to be shown, in its pixels: the face's box grown by 0.65 of its size on every side,
/// cut off at the frame's edges; the whole frame without a box and where nothing of it would be left.
[[nodiscard]] Rect retroCrop(int frameWidth, int frameHeight, const std::optional<NormalizedRect>& face);

/// Takes the brightness of this part of the frame, into memory for all of it: allocates only for larger
/// frames.
void copyGrey(const Frame& frame, const Rect& part, GreyPicture& picture);

}  // namespace sentrel
