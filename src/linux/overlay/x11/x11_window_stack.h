// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include <xcb/xcb.h>

#include "linux/overlay/x11/x11_connection.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// What lies over what, bottom to top.
enum class OverlayLayer { scene, tint, notice, picture };

/// Keeps our windows above all others and in the order of their layers.
///
/// No window manager knows these windows, so nothing keeps them on top but we: when a foreign window is
/// mapped, moved or restacked, ours are raised once, a moment later, and not more than ten times a second,
/// so that a program which does the same cannot make the two of us spin. Main thread.
class X11WindowStack {
 public:
  /// `onUse` is called when the first window comes and, with false, when the last has gone.
  X11WindowStack(const X11Connection& connection, MainLoop& loop, std::function<void(bool)> onUse);

  void add(xcb_window_t window, OverlayLayer layer);
  void remove(xcb_window_t window);

  /// Puts our windows on top now. To be called before one is mapped.
  void raise();

  /// Tells the layer of a window of ours that was mapped.
  [[nodiscard]] Signal<OverlayLayer>& mapped() { return mapped_; }

  /// Any event of the root window's substructure.
  void handle(const xcb_generic_event_t& event);

 private:
  struct Entry {
    xcb_window_t window;
    OverlayLayer layer;
  };
  using SteadyClock = std::chrono::steady_clock;

  [[nodiscard]] bool isOurs(xcb_window_t window) const;
  void raiseSoon();

  const X11Connection& connection_;
  MainLoop& loop_;
  std::function<void(bool)> onUse_;
  std::vector<Entry> entries_;  // bottom to top
  SteadyClock::time_point lastRaise_;
  Registration timer_;
  Signal<OverlayLayer> mapped_;
};

}  // namespace sentrel
