// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "linux/overlay/x11/x11_monitors.h"
#include "linux/overlay/x11/x11_retro_window.h"
#include "linux/overlay/x11/x11_surface_list.h"
#include "platform/retro_surface.h"

namespace sentrel {

/// What the picture-in-picture shows, kept as values and brought to the main monitor of the moment. Main
/// thread.
class X11RetroSurface final : public RetroSurface, public DesktopSurface {
 public:
  explicit X11RetroSurface(std::shared_ptr<X11SurfaceList> list);
  ~X11RetroSurface() override;
  X11RetroSurface(const X11RetroSurface&) = delete;
  X11RetroSurface& operator=(const X11RetroSurface&) = delete;

  void present(std::shared_ptr<const GreyPicture> picture) override;
  void setBlink(BlinkLevel level) override;

 private:
  void refresh() override;
  void release() override;
  void makeWindow();
  void flush() const;

  std::shared_ptr<X11SurfaceList> list_;
  std::shared_ptr<const GreyPicture> picture_;
  BlinkLevel blink_ = 0;
  std::optional<X11Monitor> monitor_;  // that the window is on
  std::unique_ptr<X11RetroWindow> window_;
  Registration othersMapped_;
  Registration renewal_;
};

}  // namespace sentrel
