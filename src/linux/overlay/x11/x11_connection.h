// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <xcb/xcb.h>

#include "support/geometry.h"

namespace sentrel {

/// The names that the overlay uses on the X server.
struct X11Atoms {
  xcb_atom_t utf8String = XCB_ATOM_NONE;
  xcb_atom_t netWmName = XCB_ATOM_NONE;
  xcb_atom_t netWmWindowType = XCB_ATOM_NONE;
  xcb_atom_t netWmWindowTypeDock = XCB_ATOM_NONE;
  xcb_atom_t netWmBypassCompositor = XCB_ATOM_NONE;
  xcb_atom_t netWmWindowOpacity = XCB_ATOM_NONE;
  xcb_atom_t netSupportingWmCheck = XCB_ATOM_NONE;
  xcb_atom_t netRequestFrameExtents = XCB_ATOM_NONE;
  xcb_atom_t mutterVersion = XCB_ATOM_NONE;  ///< _MUTTER_VERSION
  xcb_atom_t comptonShadow = XCB_ATOM_NONE;
  xcb_atom_t compositorSelection = XCB_ATOM_NONE;  ///< _NET_WM_CM_S<screen>
};

/// A way to draw pixels: what a window of a given look is made with.
struct X11Visual {
  xcb_visualid_t id = 0;
  std::uint8_t depth = 0;
  xcb_colormap_t colormap = XCB_NONE;
  explicit operator bool() const { return id != 0; }
};

/// A connection of our own to an X server, beside any that a toolkit has: a connection that breaks must never
/// end the process, and clicks and redraws of windows must not wait for each other. Requests on a broken
/// connection do nothing, replies are null. Main thread.
class X11Connection {
 public:
  /// `display` as in DISPLAY. Null when the server cannot be reached, cannot let clicks through a window, or
  /// has no screen that we can draw on.
  [[nodiscard]] static std::unique_ptr<X11Connection> open(const std::string& display);
  ~X11Connection();
  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;

  [[nodiscard]] xcb_connection_t* get() const { return connection_; }
  [[nodiscard]] xcb_window_t root() const { return screen_->root; }
  [[nodiscard]] const X11Atoms& atoms() const { return atoms_; }
  [[nodiscard]] bool broken() const { return xcb_connection_has_error(connection_) != 0; }

  /// 32 bits with alpha; empty where the server has none.
  [[nodiscard]] const X11Visual& translucentVisual() const { return translucent_; }
  [[nodiscard]] const X11Visual& opaqueVisual() const { return opaque_; }

  // First event of an extension; 0 where the server lacks it.
  [[nodiscard]] std::uint8_t randrEvents() const { return randrEvents_; }
  [[nodiscard]] std::uint8_t xfixesEvents() const { return xfixesEvents_; }
  [[nodiscard]] bool hasRandrMonitors() const { return randrMonitors_; }
  [[nodiscard]] bool hasXwaylandExtension() const { return xwayland_; }

  /// Sends a picture of 32-bit pixels without gaps to this place of a drawable of this depth, in as many
  /// requests as it takes.
  void putImage(xcb_drawable_t drawable, std::uint8_t depth, const Rect& place,
                const std::uint32_t* pixels) const;

 private:
  X11Connection(xcb_connection_t* connection, int screenNumber);

  [[nodiscard]] bool prepare();
  void internAtoms();
  void findVisuals();
  void queryExtensions();
  [[nodiscard]] bool queryShape() const;

  xcb_connection_t* connection_;
  int screenNumber_;
  const xcb_screen_t* screen_ = nullptr;
  X11Atoms atoms_;
  X11Visual translucent_;
  X11Visual opaque_;
  std::uint8_t randrEvents_ = 0;
  std::uint8_t xfixesEvents_ = 0;
  bool randrMonitors_ = false;
  bool xwayland_ = false;
};

}  // namespace sentrel
