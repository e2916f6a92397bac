// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/wayland/wayland_connection.h"
#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// A surface without input: every click reaches what lies beneath. What it shows is stretched to the size
/// that is asked for, so that the picture's resolution and the surface's size are independent. Changes are
/// seen after a commit. Main thread.
class WaylandSurface {
 public:
  explicit WaylandSurface(const WaylandConnection& connection);
  /// A part of another surface, above the parts that it has; shows its changes without waiting for that one.
  WaylandSurface(const WaylandConnection& connection, wl_surface* parent);
  WaylandSurface(const WaylandSurface&) = delete;
  WaylandSurface& operator=(const WaylandSurface&) = delete;

  [[nodiscard]] wl_surface* get() const { return surface_.get(); }

  /// Of a part: where it lies on its parent, in logical pixels; takes effect with the parent's commit.
  void place(int x, int y);
  /// Shows a picture that stays with the caller, on `width` by `height` logical pixels.
  void show(wl_buffer* picture, int width, int height);
  void hide();
  void commit() { wl_surface_commit(surface_.get()); }

 private:
  WaylandObject<wl_surface> surface_;
  WaylandObject<wl_subsurface> place_;
  WaylandObject<wp_viewport> viewport_;
};

}  // namespace sentrel
