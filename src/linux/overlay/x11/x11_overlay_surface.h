// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/overlay/x11/x11_picture_window.h"
#include "linux/overlay/x11/x11_scene_window.h"
#include "linux/overlay/x11/x11_surface_list.h"
#include "linux/overlay/x11/x11_tint_window.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// What one screen shows, kept as values and brought to the screen of the moment: it follows its monitor,
/// the compositing manager and the server as they change, go and come back. Main thread.
class X11OverlaySurface final : public OverlaySurface, public DesktopSurface {
 public:
  X11OverlaySurface(std::shared_ptr<X11SurfaceList> list, std::uint64_t screenId);
  ~X11OverlaySurface() override;
  X11OverlaySurface(const X11OverlaySurface&) = delete;
  X11OverlaySurface& operator=(const X11OverlaySurface&) = delete;

  void present(const OverlayScene& scene) override;
  void setTint(TintLevel level) override;

 private:
  /// Everything on the server; rebuilt when the way of showing changes.
  struct Windows {
    Windows(X11Desktop& desktop, bool translucent);
    bool translucent;
    std::optional<X11SceneWindow> scene;
    std::optional<X11TintWindow> tint;
    std::optional<X11PictureWindow> hint;
    X11PictureWindow banner;
  };

  /// What the pictures on the server were painted for.
  struct Painted {
    Rect pixels;
    double scale = 0;
    bool keys = false;
    bool operator==(const Painted&) const = default;
  };

  void refresh() override;
  void release() override;
  [[nodiscard]] const X11Monitor* monitor() const;
  void paintPictures(const X11Monitor& monitor);
  void applyTint(const Rect& pixels);
  void flush() const;

  std::shared_ptr<X11SurfaceList> list_;
  std::uint64_t screenId_;
  std::optional<OverlayScene> scene_;  // none before the first one came
  TintLevel tint_ = 0;
  Painted painted_;
  std::unique_ptr<Windows> windows_;
};

}  // namespace sentrel
