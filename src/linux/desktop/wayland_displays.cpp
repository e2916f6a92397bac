// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/wayland_displays.h"

#include <output-power-client-protocol.h>
#include <poll.h>
#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace sentrel {

struct WaylandDisplays::Output {
  WaylandDisplays* owner;
  std::uint32_t name;
  wl_output* output;
  zwlr_output_power_v1* power = nullptr;
  std::optional<bool> on;
  bool silent = false;  // nobody can tell about it: counts as on

  Output(WaylandDisplays* displays, std::uint32_t outputName, wl_output* bound)
      : owner(displays), name(outputName), output(bound) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() {
    if (power != nullptr) zwlr_output_power_v1_destroy(power);
    wl_output_destroy(output);
  }
};

struct WaylandDisplays::Listeners {
  static constexpr wl_registry_listener registry{
      [](void* self, wl_registry*, std::uint32_t name, const char* interface, std::uint32_t) {
        static_cast<WaylandDisplays*>(self)->advertised(name, interface);
      },
      [](void* self, wl_registry*, std::uint32_t name) {
        static_cast<WaylandDisplays*>(self)->withdrawn(name);
      }};

  static constexpr wl_callback_listener listing{[](void* self, wl_callback* callback, std::uint32_t) {
    wl_callback_destroy(callback);
    static_cast<WaylandDisplays*>(self)->listingDone();
  }};

  static constexpr zwlr_output_power_v1_listener power{
      [](void* data, zwlr_output_power_v1*, std::uint32_t mode) {
        auto* output = static_cast<Output*>(data);
        output->on = mode != ZWLR_OUTPUT_POWER_V1_MODE_OFF;
        output->owner->evaluate();
      },
      [](void* data, zwlr_output_power_v1*) {
        auto* output = static_cast<Output*>(data);
        output->silent = true;
        output->owner->evaluate();
      }};
};

WaylandDisplays::WaylandDisplays(WitnessReports reports) : reports_(std::move(reports)) {
  if (!qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) return;
  display_ = wl_display_connect(nullptr);
  if (display_ == nullptr) return;
  registry_ = wl_display_get_registry(display_);
  wl_registry_add_listener(registry_, &Listeners::registry, this);
  wl_callback_add_listener(wl_display_sync(display_), &Listeners::listing, this);
  wl_display_flush(display_);
  readable_ = std::make_unique<QSocketNotifier>(wl_display_get_fd(display_), QSocketNotifier::Read);
  QObject::connect(readable_.get(), &QSocketNotifier::activated, readable_.get(), [this] { read(); });
}

WaylandDisplays::~WaylandDisplays() {
  close();
}

void WaylandDisplays::close() {
  if (readable_) readable_->setEnabled(false);
  if (display_ == nullptr) return;
  outputs_.clear();
  if (manager_ != nullptr) zwlr_output_power_manager_v1_destroy(std::exchange(manager_, nullptr));
  wl_registry_destroy(registry_);
  wl_display_disconnect(std::exchange(display_, nullptr));
}

void WaylandDisplays::advertised(std::uint32_t name, const char* interface) {
  const std::string_view offered(interface);
  if (offered == zwlr_output_power_manager_v1_interface.name && manager_ == nullptr) {
    manager_ = static_cast<zwlr_output_power_manager_v1*>(
        wl_registry_bind(registry_, name, &zwlr_output_power_manager_v1_interface, 1));
    for (const auto& output : outputs_) watch(*output);
  } else if (offered == wl_output_interface.name) {
    auto* output = static_cast<wl_output*>(wl_registry_bind(registry_, name, &wl_output_interface, 1));
    outputs_.push_back(std::make_unique<Output>(this, name, output));
    hadOutput_ = true;
    watch(*outputs_.back());
  }
}

void WaylandDisplays::withdrawn(std::uint32_t name) {
  if (std::erase_if(outputs_, [&](const auto& output) { return output->name == name; }) > 0) evaluate();
}

void WaylandDisplays::listingDone() {
  listed_ = true;
  evaluate();
}

void WaylandDisplays::watch(Output& output) {
  if (manager_ == nullptr) return;
  output.power = zwlr_output_power_manager_v1_get_output_power(manager_, output.output);
  zwlr_output_power_v1_add_listener(output.power, &Listeners::power, &output);
}

/// Off means: no output shows anything, and there was one to begin with.
void WaylandDisplays::evaluate() {
  if (!listed_ || manager_ == nullptr || !hadOutput_) return;
  bool off = true;
  for (const auto& output : outputs_) {
    if (!output->on && !output->silent) return;  // its first word is under way
    off = off && !output->silent && !*output->on;
  }
  const auto before = std::exchange(off_, off);
  if (before == off) return;
  if (before) {
    reports_.changed(WitnessReports::Witness::wlrDisplays, off);
  } else {
    reports_.found(WitnessReports::Witness::wlrDisplays, off);
  }
}

void WaylandDisplays::read() {
  // Nobody else reads this connection, so what is queued can be handled before and after.
  bool alive = true;
  while (alive && wl_display_prepare_read(display_) != 0) alive = wl_display_dispatch_pending(display_) >= 0;
  if (alive) {
    pollfd socket{wl_display_get_fd(display_), POLLIN, 0};
    // A notification can be stale; reading would then wait for the compositor.
    if (poll(&socket, 1, 0) == 1) {
      alive = wl_display_read_events(display_) == 0;
    } else {
      wl_display_cancel_read(display_);
    }
  }
  alive = alive && wl_display_dispatch_pending(display_) >= 0;
  alive = alive && (wl_display_flush(display_) >= 0 || errno == EAGAIN);
  if (!alive) {
    close();
    reports_.lost(WitnessReports::Witness::wlrDisplays);
  } else if (listed_ && manager_ == nullptr) {
    close();
  }
}

}  // namespace sentrel
