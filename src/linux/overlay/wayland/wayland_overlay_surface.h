// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/wayland/wayland_layer_windows.h"
#include "platform/overlay_surface.h"

namespace sentrel {

class WaylandOverlaySurface;

/// The surfaces that exist and the desktop that they are on; none while there is no compositor.
struct WaylandSurfaceList {
  WaylandDesktop* desktop = nullptr;
  std::vector<WaylandOverlaySurface*> surfaces;
  const WaylandRetroContent* picture = nullptr;  ///< what the main screen's surface bears besides

  void bearPicture(const WaylandRetroContent* content);
};

/// What one output shows, kept as values and brought to the output of the moment: it follows the output and
/// the compositor as they change, go and come back. Main thread.
class WaylandOverlaySurface final : public OverlaySurface {
 public:
  WaylandOverlaySurface(std::shared_ptr<WaylandSurfaceList> list, std::uint64_t screenId);
  ~WaylandOverlaySurface() override;
  WaylandOverlaySurface(const WaylandOverlaySurface&) = delete;
  WaylandOverlaySurface& operator=(const WaylandOverlaySurface&) = delete;

  void present(const OverlayScene& scene) override;
  void setTint(TintLevel level) override;

  /// Whether the compositor has what is to be seen.
  [[nodiscard]] bool isShown() const { return windows_ && windows_->isShown(); }

  /// The desktop has changed, or come.
  void refresh();
  /// The desktop is going: lets go of everything on it.
  void release();

  // What the list has for the main screen has come or gone, or shows something else.
  void bearPicture();
  void retroPictureChanged();
  void retroBlinkChanged();

 private:
  void closed();

  std::shared_ptr<WaylandSurfaceList> list_;
  std::uint64_t screenId_;
  std::optional<OverlayScene> scene_;  // none before the first one came
  TintLevel tint_ = 0;
  std::unique_ptr<WaylandLayerWindows> windows_;
  std::uint32_t outputGlobal_ = 0;  // that the windows are on
  std::int64_t retryMs_ = 0;
  Registration retry_;
};

}  // namespace sentrel
