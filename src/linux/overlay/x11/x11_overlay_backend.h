// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/x11/x11_surface_list.h"

namespace sentrel {

/// The overlay on an X server; `display` as in DISPLAY.
class X11OverlayBackend final : public DesktopOverlayBackend<X11SurfaceList> {
 public:
  using DesktopOverlayBackend::DesktopOverlayBackend;
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override;
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override;
};

}  // namespace sentrel
