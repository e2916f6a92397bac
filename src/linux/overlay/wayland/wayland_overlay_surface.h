// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/overlay/wayland/wayland_layer_windows.h"
#include "linux/overlay/wayland/wayland_surface_list.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// What one output shows, kept as values and brought to the output of the moment: it follows the output and
/// the compositor as they change, go and come back. Main thread.
class WaylandOverlaySurface final : public OverlaySurface, public DesktopSurface {
 public:
  WaylandOverlaySurface(std::shared_ptr<WaylandSurfaceList> list, std::uint64_t screenId);
  ~WaylandOverlaySurface() override;
  WaylandOverlaySurface(const WaylandOverlaySurface&) = delete;
  WaylandOverlaySurface& operator=(const WaylandOverlaySurface&) = delete;

  void present(const OverlayScene& scene) override;
  void setTint(TintLevel level) override;

  /// Whether the compositor has what is to be seen.
  [[nodiscard]] bool isShown() const { return windows_ && windows_->isShown(); }

 private:
  void refresh() override;
  void release() override;
  void bearPicture();
  void closed();

  std::shared_ptr<WaylandSurfaceList> list_;
  std::uint64_t screenId_;
  std::optional<OverlayScene> scene_;  // none before the first one came
  TintLevel tint_ = 0;
  std::unique_ptr<WaylandLayerWindows> windows_;
  std::uint32_t outputGlobal_ = 0;  // that the windows are on
  std::int64_t retryMs_ = 0;
  Registration retry_;
  Registration picture_;
};

}  // namespace sentrel
