// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "platform/retro_surface.h"
#include "support/published.h"

namespace sentrel {

/// What the picture-in-picture shows. Main thread.
struct WaylandRetroContent {
  Published<std::shared_ptr<const GreyPicture>> picture;
  Published<BlinkLevel> blink;
};

}  // namespace sentrel
