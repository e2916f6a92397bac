// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/overlay/wayland/wayland_surface_list.h"
#include "platform/retro_surface.h"

namespace sentrel {

/// What the picture-in-picture shows, kept as values; the surface that covers the main output of the moment
/// bears it, because a second surface in the overlay layer may come to lie below that one. Main thread.
class WaylandRetroSurface final : public RetroSurface {
 public:
  explicit WaylandRetroSurface(std::shared_ptr<WaylandSurfaceList> list);
  ~WaylandRetroSurface() override;
  WaylandRetroSurface(const WaylandRetroSurface&) = delete;
  WaylandRetroSurface& operator=(const WaylandRetroSurface&) = delete;

  void present(std::shared_ptr<const GreyPicture> picture) override;
  void setBlink(BlinkLevel level) override;

 private:
  std::shared_ptr<WaylandSurfaceList> list_;
  WaylandRetroContent content_;
};

}  // namespace sentrel
