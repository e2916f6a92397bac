// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_retro_surface.h"

#include <utility>

namespace sentrel {

WaylandRetroSurface::WaylandRetroSurface(std::shared_ptr<WaylandSurfaceList> list) : list_(std::move(list)) {
  list_->picture = &content_;
}

WaylandRetroSurface::~WaylandRetroSurface() {
  if (list_->picture.get() == &content_) list_->picture = nullptr;
}

void WaylandRetroSurface::present(std::shared_ptr<const GreyPicture> picture) {
  content_.picture = std::move(picture);
}

void WaylandRetroSurface::setBlink(BlinkLevel level) {
  content_.blink = level;
}

}  // namespace sentrel
