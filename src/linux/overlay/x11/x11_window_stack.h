// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include <xcb/xcb.h>

#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

class X11Desktop;

/// What lies over what, bottom to top.
enum class X11Layer { scene, tint, notice, picture, cover, coverPanel };

/// Knows the windows of screen lockers that tell nobody that they lock. Theirs, like ours, is not managed: it
/// fills a monitor, and bears a locker's name or stands there while a program has grabbed the keyboard. Main
/// thread.
class X11Lockers {
 public:
  explicit X11Lockers(const X11Desktop& desktop) : desktop_(desktop) {}

  /// Finds the windows that are there; what `handle` gets tells of the others. Waits for the server's answer.
  void begin();
  /// Any event of the root window's substructure, save those of our own windows.
  void handle(const xcb_generic_event_t& event);
  /// The undermost window of a locker, or none. Waits for the server's answer, where windows may be one.
  [[nodiscard]] xcb_window_t undermost() const;

 private:
  [[nodiscard]] bool fillsMonitor(const xcb_get_geometry_reply_t& place) const;
  [[nodiscard]] bool keyboardIsGrabbed() const;

  const X11Desktop& desktop_;
  std::set<xcb_window_t> unmanaged_;  // that are mapped: menus and the like, too
};

/// Keeps our windows above all others and in the order of their layers, but below a screen locker: who sees
/// these windows while a locker covers the screen looks past it.
///
/// No window manager knows these windows, so nothing keeps them on top but we: when a foreign window is
/// mapped, moved or restacked, ours are raised once, a moment later, and not more than ten times a second,
/// so that a program which does the same cannot make the two of us spin. Main thread.
class X11WindowStack {
 public:
  /// The desktop is watchful from the first window until the last has gone.
  X11WindowStack(X11Desktop& desktop, MainLoop& loop) : desktop_(desktop), loop_(loop), lockers_(desktop) {}

  void add(xcb_window_t window, X11Layer layer);
  void remove(xcb_window_t window);

  /// Maps a window of ours, after all of them have been put on top.
  void map(xcb_window_t window);
  /// While held nothing is raised; after that, everything is, once.
  void setHeld(bool held);
  [[nodiscard]] xcb_window_t lastMapped() const { return lastMapped_; }

  /// Any event of the root window's substructure.
  void handle(const xcb_generic_event_t& event);

 private:
  struct Entry {
    xcb_window_t window;
    X11Layer layer;
  };
  using SteadyClock = std::chrono::steady_clock;

  void raise();
  void raiseSoon();

  X11Desktop& desktop_;
  MainLoop& loop_;
  X11Lockers lockers_;
  std::vector<Entry> entries_;  // bottom to top
  bool held_ = false;
  SteadyClock::time_point lastRaise_;
  Registration timer_;
  xcb_window_t lastMapped_ = XCB_NONE;
};

/// Shows new pictures of windows no faster than the window manager takes them, where it is the Wayland
/// compositor.
///
/// Each window that changes its size costs the X server a message with a file descriptor to the compositor.
/// While that is busy they pile up, and a server that cannot send one more ends itself and every program on
/// it. So the window manager is asked something after each round of pictures, and the next round waits for
/// its answer, however long that takes; what would have been shown meanwhile is left out. Main thread.
class X11PaintRounds {
 public:
  explicit X11PaintRounds(const X11Desktop& desktop) : desktop_(desktop) {}
  ~X11PaintRounds();
  X11PaintRounds(const X11PaintRounds&) = delete;
  X11PaintRounds& operator=(const X11PaintRounds&) = delete;

  /// Has this window painted in the next round, which is now when none is under way. The last request counts.
  void request(xcb_window_t window, std::function<void()> paint);
  void forget(xcb_window_t window) { waiting_.erase(window); }

  /// Any event of the connection.
  void handle(const xcb_generic_event_t& event);

 private:
  void paintRound();

  const X11Desktop& desktop_;
  std::map<xcb_window_t, std::function<void()>> waiting_;
  xcb_window_t asker_ = XCB_NONE;
  bool asked_ = false;
};

}  // namespace sentrel
