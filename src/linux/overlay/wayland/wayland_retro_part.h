// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <optional>

#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/wayland/wayland_memory.h"
#include "linux/overlay/wayland/wayland_pictures.h"
#include "linux/overlay/wayland/wayland_retro_content.h"
#include "linux/overlay/wayland/wayland_surface.h"
#include "platform/retro_surface.h"

namespace sentrel {

/// The picture-in-picture as a part of the surface that covers an output, above its other parts. The dot is
/// a part of its own, so that its blinking repaints nothing; not a part of the picture, because not every
/// compositor sees changes of parts of parts. Must not outlive the parent. Main thread.
class WaylandRetroPart {
 public:
  /// `content` must outlive this.
  WaylandRetroPart(WaylandDesktop& desktop, wl_surface* parent, const WaylandRetroContent& content);
  WaylandRetroPart(const WaylandRetroPart&) = delete;
  WaylandRetroPart& operator=(const WaylandRetroPart&) = delete;

  /// `output` is the parent's size in logical pixels, with its origin at 0. The place comes with the parent's
  /// next commit.
  void place(const Rect& output, double scale);

 private:
  void showPicture();
  void showDot();
  void prepare(double scale);
  [[nodiscard]] bool paintDots();

  WaylandDesktop& desktop_;
  const WaylandRetroContent& content_;
  WaylandSurface picture_;
  WaylandSurface dot_;
  WaylandPictures pictures_{0};
  std::optional<RetroPainter> painter_;
  std::array<WaylandObject<wl_buffer>, brightestBlink + 1> dots_;
  Rect dotPlace_;  // logical pixels, on the picture-in-picture
  Registration pictureChange_;
  Registration blinkChange_;
};

}  // namespace sentrel
