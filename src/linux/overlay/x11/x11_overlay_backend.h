// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "linux/overlay/reconnect.h"
#include "linux/overlay/x11/x11_overlay_surface.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"

namespace sentrel {

/// The overlay on an X server, over a connection of its own.
///
/// When the server goes, its screens go; the back end then tries to reach it again, ever more rarely, and
/// brings the screens back. Neither ends the process. Needs a Qt event loop on the main thread and, to paint,
/// a QGuiApplication of any platform.
class X11OverlayBackend final : public OverlayBackend {
 public:
  /// `display` as in DISPLAY. Succeeds also when the server is not there yet.
  X11OverlayBackend(MainLoop& loop, std::string display);
  ~X11OverlayBackend() override;

  [[nodiscard]] std::vector<Screen> screens() const override;
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override;
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override;
  [[nodiscard]] std::string limitation() const override;

 private:
  bool connect();
  bool retry();
  void disconnect();
  void desktopLost();
  void desktopChanged();
  void announce();

  MainLoop& loop_;
  std::string display_;
  std::shared_ptr<X11SurfaceList> list_ = std::make_shared<X11SurfaceList>();
  std::unique_ptr<X11Desktop> desktop_;
  Reconnect reconnect_;
  // What was last announced.
  std::vector<Screen> announcedScreens_;
  std::string announcedLimitation_;
};

}  // namespace sentrel
