// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux/overlay/x11/x11_click_through.h"
#include "linux/overlay/x11/x11_compositor_watch.h"
#include "linux/overlay/x11/x11_connection.h"
#include "linux/overlay/x11/x11_event_pump.h"
#include "linux/overlay/x11/x11_monitors.h"
#include "linux/overlay/x11/x11_paint_pace.h"
#include "linux/overlay/x11/x11_window_stack.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// One X server as long as its connection lives: its monitors, whether it blends windows, and the order of
/// ours. Main thread.
class X11Desktop {
 public:
  struct Handlers {
    std::function<void()> changed;  ///< monitors or blending
    std::function<void()> lost;     ///< the connection broke; called in a turn of its own
  };

  /// Null when the server cannot be reached or lacks what a cover needs.
  [[nodiscard]] static std::unique_ptr<X11Desktop> open(const std::string& display, MainLoop& loop,
                                                        Handlers handlers);

  [[nodiscard]] const X11Connection& connection() const { return *connection_; }
  [[nodiscard]] X11WindowStack& stack() { return stack_; }
  [[nodiscard]] X11PaintPace& paintPace() { return paintPace_; }
  [[nodiscard]] MainLoop& loop() { return loop_; }
  /// None while clicks would not get through what lies on them.
  [[nodiscard]] const std::vector<X11Monitor>& monitors() const { return monitors_; }
  [[nodiscard]] ClickThrough clickThrough() const { return clickThrough_; }
  [[nodiscard]] bool blendsWindows() const {
    return compositor_.isRunning() && connection_->translucentVisual();
  }
  /// From the beginning: its server has answered when it opens.
  [[nodiscard]] static constexpr bool isUsable() { return true; }
  [[nodiscard]] std::vector<Screen> screens() const;
  /// As that of OverlayBackend.
  [[nodiscard]] std::string limitation() const;
  /// Tells the window of ours that has to be drawn again.
  [[nodiscard]] Signal<xcb_window_t>& exposed() { return exposed_; }
  void flush() const { xcb_flush(connection_->get()); }

 private:
  X11Desktop(std::unique_ptr<X11Connection> connection, MainLoop& loop, Handlers handlers);

  /// Whether to be told of everything that happens to other programs' windows, which wakes us often.
  void setWatchful(bool watchful);
  void selectRootEvents();
  void handle(const xcb_generic_event_t& event);
  [[nodiscard]] bool concernsMonitors(const xcb_generic_event_t& event) const;
  void reloadSoon();
  /// False when nothing has changed.
  bool readMonitors();

  std::unique_ptr<X11Connection> connection_;
  MainLoop& loop_;
  Handlers handlers_;
  std::vector<X11Monitor> monitors_;
  ClickThrough clickThrough_ = ClickThrough::nothing;
  bool watchful_ = false;
  Signal<xcb_window_t> exposed_;
  X11WindowStack stack_;
  X11PaintPace paintPace_;
  X11CompositorWatch compositor_;
  Registration reload_;
  Registration loss_;
  X11EventPump pump_;
};

}  // namespace sentrel
