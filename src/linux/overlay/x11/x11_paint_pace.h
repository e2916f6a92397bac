// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>

#include <xcb/xcb.h>

#include "linux/overlay/x11/x11_connection.h"

namespace sentrel {

/// Shows new pictures of windows no faster than the window manager takes them, where it is the Wayland
/// compositor.
///
/// Each window that changes its size costs the X server a message with a file descriptor to the compositor.
/// While that is busy they pile up, and a server that cannot send one more ends itself and every program on
/// it. So the window manager is asked something after each round of pictures, and the next round waits for
/// its answer, however long that takes; what would have been shown meanwhile is left out. Main thread.
class X11PaintPace {
 public:
  explicit X11PaintPace(const X11Connection& connection) : connection_(connection) {}
  ~X11PaintPace();
  X11PaintPace(const X11PaintPace&) = delete;
  X11PaintPace& operator=(const X11PaintPace&) = delete;

  /// Has this window painted in the next round, which is now when none is under way. The last request counts.
  void request(xcb_window_t window, std::function<void()> paint);
  void forget(xcb_window_t window) { waiting_.erase(window); }

  /// Any event of the connection.
  void handle(const xcb_generic_event_t& event);

 private:
  void paintRound();
  void ask();

  const X11Connection& connection_;
  std::map<xcb_window_t, std::function<void()>> waiting_;
  xcb_window_t asker_ = XCB_NONE;
  bool asked_ = false;
};

}  // namespace sentrel
