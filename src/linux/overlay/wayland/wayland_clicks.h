// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <wayland-cursor.h>

#include <cstdint>
#include <map>
#include <memory>

#include "linux/display/wayland_connection.h"
#include "support/published.h"

namespace sentrel {

/// Clicks and touches on our own surfaces, where these take input. Main thread.
class WaylandClicks {
 public:
  /// `seat` may be null: then nothing is ever clicked. All of them must outlive this object.
  WaylandClicks(wl_compositor* compositor, wl_shm* sharedMemory, wl_seat* seat);
  WaylandClicks(const WaylandClicks&) = delete;
  WaylandClicks& operator=(const WaylandClicks&) = delete;

  /// The left button or a finger went down on this surface and up again, at this place on it, in its logical
  /// pixels. That may be beside the surface: in between the compositor tells us alone. Observers must not
  /// destroy a surface.
  Signal<wl_surface*, double, double> clicked;

 private:
  struct Place {
    wl_surface* surface = nullptr;
    double x = 0;
    double y = 0;
  };
  struct ThemeDeleter {
    void operator()(wl_cursor_theme* theme) const { wl_cursor_theme_destroy(theme); }
  };

  void listenToPointer();
  void listenToTouch();
  void showCursor(std::uint32_t serial);

  wl_compositor* const compositor_;
  wl_shm* const sharedMemory_;
  wl_seat* const seat_;
  WaylandObject<wl_pointer> pointer_;
  WaylandObject<wl_touch> touch_;
  std::unique_ptr<wl_cursor_theme, ThemeDeleter> theme_;
  WaylandObject<wl_surface> cursor_;
  Place place_;           // of the pointer
  bool pressed_ = false;  // the left button, on that surface
  std::map<std::int32_t, Place> fingers_;
};

}  // namespace sentrel
