// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/surface_list.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/wayland/wayland_retro_content.h"
#include "support/published.h"

namespace sentrel {

struct WaylandSurfaceList : SurfaceList<WaylandDesktop> {
  /// What the surface that covers the main screen bears besides; null when there is nothing.
  Published<const WaylandRetroContent*> picture{nullptr};
};

}  // namespace sentrel
