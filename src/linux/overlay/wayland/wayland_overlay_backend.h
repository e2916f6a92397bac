// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "linux/overlay/reconnect.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/wayland/wayland_overlay_surface.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"

namespace sentrel {

/// The overlay on a Wayland compositor with a layer shell, over a connection of its own.
///
/// When the compositor goes, its screens go; the back end then tries to reach it again, ever more rarely, and
/// brings the screens back. Neither ends the process. Needs a Qt event loop on the main thread and, to paint,
/// a QGuiApplication of any platform.
class WaylandOverlayBackend final : public OverlayBackend {
 public:
  /// Whether the compositor is there, and whether it can be covered.
  enum class Reach { covers, refuses, absent };
  [[nodiscard]] static Reach probe(const std::string& display);

  /// `display` as in WAYLAND_DISPLAY. Succeeds also when the compositor is not there yet.
  WaylandOverlayBackend(MainLoop& loop, std::string display);
  ~WaylandOverlayBackend() override;

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
  std::shared_ptr<WaylandSurfaceList> list_ = std::make_shared<WaylandSurfaceList>();
  std::unique_ptr<WaylandDesktop> desktop_;
  Reconnect reconnect_;
  // What was last announced.
  std::vector<Screen> announcedScreens_;
  std::string announcedLimitation_;
};

}  // namespace sentrel
