// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "platform/overlay_surface.h"
#include "support/registration.h"

namespace sentrel {

/// What one output of a Wayland compositor shows, brought to the output of the moment: it follows the output
/// and the compositor as they change, go and come back. Main thread.
class WaylandOverlaySurface final : public DesktopSurface<WaylandDesktop> {
 public:
  WaylandOverlaySurface(std::shared_ptr<List> list, std::uint64_t screenId);
  WaylandOverlaySurface(const WaylandOverlaySurface&) = delete;
  WaylandOverlaySurface& operator=(const WaylandOverlaySurface&) = delete;
  ~WaylandOverlaySurface() override;

  void release() override;

  /// Whether the compositor has what is to be seen.
  [[nodiscard]] bool isShown() const;

 private:
  class Layers;

  // A compositor that closes a surface while its output stays may be asked again, but never in a circle.
  static constexpr std::int64_t firstRetryMs = 250;
  static constexpr std::int64_t longestRetryMs = 8'000;

  void refresh() override;
  void tintChanged() override;
  void pictureChanged(const std::optional<RetroPicture>& former) override;
  void closed();

  std::unique_ptr<Layers> layers_;
  std::int64_t retryMs_ = firstRetryMs;
  Registration retry_;
};

/// The overlay on a Wayland compositor with a layer shell; its display as in WAYLAND_DISPLAY.
using WaylandOverlayBackend = DesktopOverlayBackend<WaylandDesktop, WaylandOverlaySurface>;

}  // namespace sentrel
