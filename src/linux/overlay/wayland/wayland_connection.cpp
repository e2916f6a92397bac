// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_connection.h"

#include <poll.h>

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {
// Surfaces whose damage is told in the buffer's own pixels.
constexpr std::uint32_t compositorVersion = 4;
// With the name of the output.
constexpr std::uint32_t newestOutput = 4;
constexpr std::uint32_t newestOutputManager = 3;
}  // namespace

std::unique_ptr<WaylandConnection> WaylandConnection::open(const std::string& display) {
  wl_display* raw = wl_display_connect(display.c_str());
  if (raw == nullptr) return nullptr;
  return std::unique_ptr<WaylandConnection>(new WaylandConnection(raw));
}

WaylandConnection::WaylandConnection(wl_display* display)
    : display_(display), registry_(wl_display_get_registry(display)) {
  static constexpr wl_registry_listener listener{
      .global =
          [](void* self, wl_registry* /*registry*/, std::uint32_t name, const char* interface,
             std::uint32_t version) {
            static_cast<WaylandConnection*>(self)->globalAppeared(name, interface, version);
          },
      .global_remove = [](void* self, wl_registry* /*registry*/,
                          std::uint32_t name) { static_cast<WaylandConnection*>(self)->globalRemoved(name); },
  };
  wl_registry_add_listener(registry_.get(), &listener, this);
}

WaylandConnection::~WaylandConnection() = default;

void WaylandConnection::whenAnswered(std::function<void()> answered) {
  static constexpr wl_callback_listener listener{.done = [](void* self, wl_callback*, std::uint32_t) {
    auto& connection = *static_cast<WaylandConnection*>(self);
    connection.answer_.reset();
    // It may ask for the next answer.
    std::exchange(connection.answered_, nullptr)();
  }};
  answered_ = std::move(answered);
  answer_.reset(wl_display_sync(display_.get()));
  wl_callback_add_listener(answer_.get(), &listener, this);
}

bool WaylandConnection::await(std::chrono::milliseconds limit, const std::function<bool()>& done) const {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + limit;
  while (!done()) {
    if (wl_display_prepare_read(get()) != 0) {
      if (wl_display_dispatch_pending(get()) < 0) break;
      continue;
    }
    wl_display_flush(get());
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    pollfd socket{wl_display_get_fd(get()), POLLIN, 0};
    if (left.count() <= 0 || poll(&socket, 1, static_cast<int>(left.count())) <= 0) {
      wl_display_cancel_read(get());
      if (left.count() <= 0) break;
      continue;
    }
    if (wl_display_read_events(get()) < 0 || wl_display_dispatch_pending(get()) < 0) break;
  }
  return done();
}

bool WaylandConnection::canCover() const {
  return compositor_ && subcompositor_ && sharedMemory_ && viewporter_ && layerShell_;
}

wl_output* WaylandConnection::bindOutput(const OutputGlobal& output) const {
  return static_cast<wl_output*>(wl_registry_bind(registry_.get(), output.name, &wl_output_interface,
                                                  std::min(output.version, newestOutput)));
}

template <class Object>
void WaylandConnection::bind(Object& object, std::uint32_t name, const wl_interface& interface,
                             std::uint32_t version) {
  if (object) return;
  using Type = typename Object::element_type;
  object.reset(static_cast<Type*>(wl_registry_bind(registry_.get(), name, &interface, version)));
}

void WaylandConnection::globalAppeared(std::uint32_t name, const std::string& interface,
                                       std::uint32_t version) {
  const auto is = [&interface](const wl_interface& known) { return interface == known.name; };
  if (is(wl_output_interface)) {
    outputs_.push_back({name, version});
    outputsChanged_();
  } else if (is(wl_compositor_interface) && version >= compositorVersion) {
    bind(compositor_, name, wl_compositor_interface, compositorVersion);
  } else if (is(wl_subcompositor_interface)) {
    bind(subcompositor_, name, wl_subcompositor_interface, 1);
  } else if (is(wl_shm_interface)) {
    bind(sharedMemory_, name, wl_shm_interface, 1);
  } else if (is(wp_viewporter_interface)) {
    bind(viewporter_, name, wp_viewporter_interface, 1);
  } else if (is(zwlr_layer_shell_v1_interface)) {
    bind(layerShell_, name, zwlr_layer_shell_v1_interface, 1);
  } else if (is(zxdg_output_manager_v1_interface)) {
    bind(outputManager_, name, zxdg_output_manager_v1_interface, std::min(version, newestOutputManager));
  } else if (is(wp_fractional_scale_manager_v1_interface)) {
    bind(fractionalScales_, name, wp_fractional_scale_manager_v1_interface, 1);
  }
}

void WaylandConnection::globalRemoved(std::uint32_t name) {
  if (std::erase_if(outputs_, [name](const OutputGlobal& output) { return output.name == name; }) > 0) {
    outputsChanged_();
  }
}

}  // namespace sentrel
