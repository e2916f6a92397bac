// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <wayland-client.h>

#include <QSocketNotifier>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <fractional-scale-client-protocol.h>
#include <kde-client-protocol.h>
#include <viewporter-client-protocol.h>
#include <wlr-client-protocol.h>
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
  void operator()(wl_output* object) const {
    wl_output_get_version(object) >= WL_OUTPUT_RELEASE_SINCE_VERSION ? wl_output_release(object)
                                                                     : wl_output_destroy(object);
  }
  void operator()(wl_seat* object) const {
    wl_seat_get_version(object) >= WL_SEAT_RELEASE_SINCE_VERSION ? wl_seat_release(object)
                                                                 : wl_seat_destroy(object);
  }
  void operator()(wl_pointer* object) const {
    wl_pointer_get_version(object) >= WL_POINTER_RELEASE_SINCE_VERSION ? wl_pointer_release(object)
                                                                       : wl_pointer_destroy(object);
  }
  void operator()(wl_touch* object) const {
    wl_touch_get_version(object) >= WL_TOUCH_RELEASE_SINCE_VERSION ? wl_touch_release(object)
                                                                   : wl_touch_destroy(object);
  }
  void operator()(wp_viewporter* object) const { wp_viewporter_destroy(object); }
  void operator()(wp_viewport* object) const { wp_viewport_destroy(object); }
  void operator()(zwlr_layer_shell_v1* object) const { zwlr_layer_shell_v1_destroy(object); }
  void operator()(zwlr_layer_surface_v1* object) const { zwlr_layer_surface_v1_destroy(object); }
  void operator()(zwlr_output_power_manager_v1* object) const {
    zwlr_output_power_manager_v1_destroy(object);
  }
  void operator()(zwlr_output_power_v1* object) const { zwlr_output_power_v1_destroy(object); }
  void operator()(org_kde_kwin_dpms_manager* object) const { org_kde_kwin_dpms_manager_destroy(object); }
  void operator()(org_kde_kwin_dpms* object) const { org_kde_kwin_dpms_release(object); }
  void operator()(org_kde_plasma_shell* object) const { org_kde_plasma_shell_destroy(object); }
  void operator()(org_kde_plasma_surface* object) const { org_kde_plasma_surface_destroy(object); }
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

/// A connection of our own to a Wayland compositor, beside any that a toolkit has. Requests on a broken
/// connection do nothing. Lives on the thread that opened it, which has a Qt event loop.
class WaylandConnection {
 public:
  /// Told what the compositor offers, as it comes and goes.
  struct GlobalHandlers {
    std::function<void(std::uint32_t name, std::string_view interface, std::uint32_t version)> appeared;
    std::function<void(std::uint32_t name)> removed = [](std::uint32_t) {};
  };

  /// `display` as in WAYLAND_DISPLAY; null when nothing listens there. What the compositor offers is known
  /// once it has answered.
  [[nodiscard]] static std::unique_ptr<WaylandConnection> open(const std::string& display,
                                                               GlobalHandlers globals);

  /// Calls `answered` once, when the compositor has answered everything that was asked before; in place of
  /// what was to be called so far.
  void whenAnswered(std::function<void()> answered);
  /// Handles what the compositor says until `done()`, for at most `limit`: one that hangs must not hang us.
  /// Returns `done()`. Not once this runs.
  bool await(std::chrono::milliseconds limit, const std::function<bool()>& done) const;
  /// From now on handles what the compositor says as it comes, and sends what was requested before the event
  /// loop goes to sleep. `onBroken` is called once, when the connection is found broken; it must not destroy
  /// this.
  /// `onDrained` is called when the compositor takes again what it did not take.
  void run(
      std::function<void()> onBroken, std::function<void()> onDrained = [] {});

  /// Whether the compositor does not take what is sent. A few requests more, and the library gives the
  /// connection up.
  [[nodiscard]] bool full() const { return writable_ && writable_->isEnabled(); }
  [[nodiscard]] bool broken() const { return wl_display_get_error(get()) != 0; }
  [[nodiscard]] wl_display* get() const { return display_.get(); }

  /// Takes up what was offered under this name.
  template <class T>
  [[nodiscard]] WaylandObject<T> bind(std::uint32_t name, const wl_interface& interface,
                                      std::uint32_t version) const {
    return WaylandObject<T>(static_cast<T*>(wl_registry_bind(registry_.get(), name, &interface, version)));
  }

 private:
  WaylandConnection(wl_display* display, GlobalHandlers globals);
  void readSocket();
  void dispatchAndSend();

  WaylandObject<wl_display> display_;
  GlobalHandlers globals_;
  WaylandObject<wl_registry> registry_;
  WaylandObject<wl_callback> answer_;
  std::function<void()> answered_;
  std::function<void()> onBroken_;
  std::function<void()> onDrained_;
  std::unique_ptr<QSocketNotifier> readable_;
  std::unique_ptr<QSocketNotifier> writable_;  // enabled only while the socket is full
};

}  // namespace sentrel
