// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_surface.h"

namespace sentrel {

WaylandSurface::WaylandSurface(const WaylandConnection& connection)
    : surface_(wl_compositor_create_surface(connection.compositor())),
      viewport_(wp_viewporter_get_viewport(connection.viewporter(), surface_.get())) {
  const WaylandObject<wl_region> nothing(wl_compositor_create_region(connection.compositor()));
  wl_surface_set_input_region(surface_.get(), nothing.get());
}

WaylandSurface::WaylandSurface(const WaylandConnection& connection, wl_surface* parent)
    : WaylandSurface(connection) {
  place_.reset(wl_subcompositor_get_subsurface(connection.subcompositor(), surface_.get(), parent));
  wl_subsurface_set_desync(place_.get());
}

void WaylandSurface::place(int x, int y) {
  wl_subsurface_set_position(place_.get(), x, y);
}

void WaylandSurface::show(wl_buffer* picture, int width, int height) {
  wl_surface_attach(surface_.get(), picture, 0, 0);
  // In logical pixels and no more than there are: what is stretched a thousandfold overflows elsewhere.
  wl_surface_damage(surface_.get(), 0, 0, width, height);
  wp_viewport_set_destination(viewport_.get(), width, height);
}

void WaylandSurface::hide() {
  wl_surface_attach(surface_.get(), nullptr, 0, 0);
}

}  // namespace sentrel
