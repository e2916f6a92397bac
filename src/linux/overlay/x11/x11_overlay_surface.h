// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/x11/x11_desktop.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// What one screen of an X server shows, a window a layer, brought to the monitor of the moment: it follows
/// its monitor, the compositing manager and the server as they change, go and come back. Main thread.
class X11OverlaySurface final : public DesktopSurface<X11Desktop> {
 public:
  X11OverlaySurface(std::shared_ptr<List> list, std::uint64_t screenId);
  X11OverlaySurface(const X11OverlaySurface&) = delete;
  X11OverlaySurface& operator=(const X11OverlaySurface&) = delete;
  ~X11OverlaySurface() override;

  void release() override;

 private:
  /// Everything on the server; rebuilt when the way of showing changes.
  struct Windows;

  void refresh() override;
  void tintChanged() override;
  void pictureChanged(const std::optional<RetroPicture>& former) override;
  [[nodiscard]] const X11Monitor* findMonitor() const;
  void paintNotices(const std::string& keys);
  void showTint();
  void showPicture();
  void keepPictureOnTop();

  std::unique_ptr<Windows> windows_;
  X11Monitor monitor_;  // that the windows are painted for
  // Of the hint on the server.
  std::optional<std::string> keys_;  // that it shows
  Rect hintArea_;                    // in whose corner it is
};

/// The overlay on an X server; its display as in DISPLAY.
using X11OverlayBackend = DesktopOverlayBackend<X11Desktop, X11OverlaySurface>;

}  // namespace sentrel
