// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_retro_surface.h"

#include <utility>

#include "linux/overlay/wayland/wayland_overlay_surface.h"

namespace sentrel {

WaylandRetroSurface::WaylandRetroSurface(std::shared_ptr<WaylandSurfaceList> list) : list_(std::move(list)) {
  list_->bearPicture(&content_);
}

WaylandRetroSurface::~WaylandRetroSurface() {
  if (list_->picture == &content_) list_->bearPicture(nullptr);
}

void WaylandRetroSurface::present(std::shared_ptr<const GreyPicture> picture) {
  content_.picture = std::move(picture);
  for (WaylandOverlaySurface* surface : list_->surfaces) surface->retroPictureChanged();
}

void WaylandRetroSurface::setBlink(BlinkLevel level) {
  content_.blink = level;
  for (WaylandOverlaySurface* surface : list_->surfaces) surface->retroBlinkChanged();
}

}  // namespace sentrel
