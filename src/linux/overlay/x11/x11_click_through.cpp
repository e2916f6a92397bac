// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_click_through.h"

#include <algorithm>
#include <cstring>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

namespace {

// The extension came with version 23.1; before that, all of its outputs bore its name.
bool isXwayland(const X11Connection& connection, const std::vector<X11Monitor>& monitors) {
  return connection.hasXwaylandExtension() || std::ranges::any_of(monitors, [](const X11Monitor& m) {
           return m.screen.name.starts_with("XWAYLAND");
         });
}

bool isMutter(const X11Connection& connection) {
  const auto property = [&connection](xcb_window_t window, xcb_atom_t name) {
    return adopt(xcb_get_property_reply(
        connection.get(), xcb_get_property(connection.get(), 0, window, name, XCB_ATOM_ANY, 0, 1), nullptr));
  };
  const auto check = property(connection.root(), connection.atoms().netSupportingWmCheck);
  xcb_window_t manager = XCB_NONE;
  if (!check || xcb_get_property_value_length(check.get()) != sizeof manager) return false;
  std::memcpy(&manager, xcb_get_property_value(check.get()), sizeof manager);
  const auto version = property(manager, connection.atoms().mutterVersion);
  return version && version->type != XCB_ATOM_NONE;
}

}  // namespace

ClickThrough findClickThrough(const X11Connection& connection, const std::vector<X11Monitor>& monitors) {
  if (!isXwayland(connection, monitors)) return ClickThrough::inputShape;
  return isMutter(connection) ? ClickThrough::newSizes : ClickThrough::nothing;
}

}  // namespace sentrel
