// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/create_overlay_backend.h"

#include <cstdlib>
#include <string>

#include "linux/overlay/null_overlay_backend.h"
#include "linux/overlay/wayland/wayland_overlay_backend.h"
#include "linux/overlay/x11/x11_overlay_backend.h"

namespace sentrel {

namespace {
std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}
}  // namespace

std::unique_ptr<OverlayBackend> createOverlayBackend(MainLoop& loop) {
  const std::string wayland = variable("WAYLAND_DISPLAY");
  const std::string x11 = variable("DISPLAY");
  if (!wayland.empty()) {
    const auto reach = WaylandOverlayBackend::probe(wayland);
    // A compositor that is not there yet is waited for where there is nothing else. One that hangs will most
    // likely let itself be covered once it answers, except that of GNOME.
    const bool waits = (reach == WaylandOverlayBackend::Reach::absent && x11.empty()) ||
                       (reach == WaylandOverlayBackend::Reach::silent &&
                        (x11.empty() || variable("XDG_CURRENT_DESKTOP").find("GNOME") == std::string::npos));
    if (reach == WaylandOverlayBackend::Reach::covers || waits) {
      return std::make_unique<WaylandOverlayBackend>(loop, wayland);
    }
  }
  if (!x11.empty()) return std::make_unique<X11OverlayBackend>(loop, x11);
  return std::make_unique<NullOverlayBackend>();
}

}  // namespace sentrel
