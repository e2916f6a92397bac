// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_backend.h"

#include "linux/overlay/x11/x11_overlay_surface.h"
#include "linux/overlay/x11/x11_retro_surface.h"

namespace sentrel {

std::unique_ptr<OverlaySurface> X11OverlayBackend::createSurface(const Screen& screen) {
  return std::make_unique<X11OverlaySurface>(list(), screen.id);
}

std::unique_ptr<RetroSurface> X11OverlayBackend::createRetroSurface() {
  return std::make_unique<X11RetroSurface>(list());
}

}  // namespace sentrel
