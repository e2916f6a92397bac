// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/wayland/wayland_surface_list.h"

namespace sentrel {

/// The overlay on a Wayland compositor with a layer shell; `display` as in WAYLAND_DISPLAY.
class WaylandOverlayBackend final : public DesktopOverlayBackend<WaylandSurfaceList> {
 public:
  /// Whether the compositor is there, and whether it can be covered. A silent one does not answer in time.
  enum class Reach { covers, refuses, absent, silent };
  [[nodiscard]] static Reach probe(const std::string& display);

  using DesktopOverlayBackend::DesktopOverlayBackend;
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override;
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override;
};

}  // namespace sentrel
