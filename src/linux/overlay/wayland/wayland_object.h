// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <wayland-client.h>

#include <memory>

#include <fractional-scale-client-protocol.h>
#include <layer-shell-client-protocol.h>
#include <viewporter-client-protocol.h>
#include <xdg-output-client-protocol.h>

namespace sentrel {

struct WaylandDeleter {
  void operator()(wl_display* object) const { wl_display_disconnect(object); }
  void operator()(wl_registry* object) const { wl_registry_destroy(object); }
  void operator()(wl_callback* object) const { wl_callback_destroy(object); }
  void operator()(wl_compositor* object) const { wl_compositor_destroy(object); }
  void operator()(wl_subcompositor* object) const { wl_subcompositor_destroy(object); }
  void operator()(wl_shm* object) const { wl_shm_destroy(object); }
  void operator()(wl_shm_pool* object) const { wl_shm_pool_destroy(object); }
  void operator()(wl_buffer* object) const { wl_buffer_destroy(object); }
  void operator()(wl_region* object) const { wl_region_destroy(object); }
  void operator()(wl_surface* object) const { wl_surface_destroy(object); }
  void operator()(wl_subsurface* object) const { wl_subsurface_destroy(object); }
  void operator()(wp_viewporter* object) const { wp_viewporter_destroy(object); }
  void operator()(wp_viewport* object) const { wp_viewport_destroy(object); }
  void operator()(zwlr_layer_shell_v1* object) const { zwlr_layer_shell_v1_destroy(object); }
  void operator()(zwlr_layer_surface_v1* object) const { zwlr_layer_surface_v1_destroy(object); }
  void operator()(zxdg_output_manager_v1* object) const { zxdg_output_manager_v1_destroy(object); }
  void operator()(zxdg_output_v1* object) const { zxdg_output_v1_destroy(object); }
  void operator()(wp_fractional_scale_manager_v1* object) const {
    wp_fractional_scale_manager_v1_destroy(object);
  }
  void operator()(wp_fractional_scale_v1* object) const { wp_fractional_scale_v1_destroy(object); }
};

/// A connection, or one object of a connection: destroyed on both sides. An object must not outlive its
/// connection.
template <class T>
using WaylandObject = std::unique_ptr<T, WaylandDeleter>;

}  // namespace sentrel
