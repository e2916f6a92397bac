// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include <QByteArray>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/display/x11_connection.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/x11/x11_window_stack.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// A monitor as the server tells it.
struct X11MonitorInfo {
  std::string name;
  Rect pixels;
  int widthMillimetres = 0;  ///< 0 when unknown
  bool primary = false;
};

/// A monitor as the overlay uses it.
struct X11Monitor {
  Screen screen;
  Rect pixels;  ///< device pixels
  bool operator==(const X11Monitor&) const = default;
};

/// Names, numbers and scales the monitors. One that lies within another shows the same picture and is left
/// out: covering it twice would darken it twice. `dpi` is the desktop's setting, 96 for a scale of 1; without
/// one the density of the monitor decides, carefully, in whole steps.
[[nodiscard]] std::vector<X11Monitor> arrangeMonitors(const std::vector<X11MonitorInfo>& monitors,
                                                      std::optional<double> dpi);

/// What panels leave of a monitor: the most that one of `areas` has of it. One that leaves less than half of
/// its width or height is not about this monitor, and without any it is the whole one.
[[nodiscard]] Rect workAreaOf(const Rect& monitor, const std::vector<Rect>& areas);

/// The value of Xft.dpi in the text of the resource manager, where it is a sane one.
[[nodiscard]] std::optional<double> parseXftDpi(const QByteArray& resources);

/// A way to draw pixels: what a window of a given look is made with.
struct X11Visual {
  xcb_visualid_t id = 0;
  std::uint8_t depth = 0;
  xcb_colormap_t colormap = XCB_NONE;
  explicit operator bool() const { return id != 0; }
};

/// What lets clicks through a window of ours that has an empty input shape.
enum class ClickThrough {
  inputShape,  ///< the X server itself, where it is the one that hands out clicks
  /// Mutter, as the Wayland compositor behind the server, but only while each picture that it gets of the
  /// window has another size than the one before. Up to its version 44.8 a picture makes it forget the shape,
  /// and it asks for the shape again only when the size has changed.
  newSizes,
  nothing,  ///< a Wayland compositor of which it is not known
};

/// One X server as long as its connection lives: its monitors, whether a compositing manager blends
/// translucent windows, and the order of ours. Main thread.
class X11Desktop {
 public:
  static constexpr auto systemName = "X11";

  /// Null when the server cannot be reached, cannot let clicks through a window, or has no screen that we can
  /// draw on.
  [[nodiscard]] static std::unique_ptr<X11Desktop> open(const std::string& display, MainLoop& loop,
                                                        DesktopHandlers handlers);
  ~X11Desktop();
  X11Desktop(const X11Desktop&) = delete;
  X11Desktop& operator=(const X11Desktop&) = delete;

  [[nodiscard]] xcb_connection_t* get() const { return connection_->get(); }
  [[nodiscard]] xcb_window_t root() const { return connection_->root(); }
  /// Windows that are already gone are known, too.
  [[nodiscard]] bool isOurs(xcb_window_t window) const;
  /// The server's number of a name that is in the list of those that the overlay uses.
  [[nodiscard]] xcb_atom_t atom(std::string_view name) const { return atoms_.at(name); }
  /// 32 bits with alpha; empty where the server has none.
  [[nodiscard]] const X11Visual& translucentVisual() const { return translucent_; }
  [[nodiscard]] const X11Visual& opaqueVisual() const { return opaque_; }

  [[nodiscard]] X11WindowStack& stack() { return stack_; }
  [[nodiscard]] X11PaintRounds& paintRounds() { return paintRounds_; }
  /// Whether to be told of everything that happens to other programs' windows, which wakes us often.
  void setWatchful(bool watchful);
  /// None while clicks would not get through what lies on them.
  [[nodiscard]] const std::vector<X11Monitor>& monitors() const { return monitors_; }
  /// What panels leave of the desktop that is seen, of each monitor or of all together; empty where nobody
  /// tells.
  [[nodiscard]] const std::vector<Rect>& workAreas() const { return workAreas_; }
  [[nodiscard]] ClickThrough clickThrough() const { return clickThrough_; }
  [[nodiscard]] bool blendsWindows() const;
  /// From the beginning: its server has answered when it opens.
  [[nodiscard]] static constexpr bool isUsable() { return true; }
  [[nodiscard]] std::vector<Screen> screens() const;
  /// As that of OverlayBackend.
  [[nodiscard]] std::string limitation() const;
  /// Tells the window of ours that has to be drawn again.
  [[nodiscard]] Signal<xcb_window_t>& exposed() { return exposed_; }
  /// Tells what pointer buttons do on windows of ours that take them, presses and releases.
  [[nodiscard]] Signal<xcb_button_press_event_t>& buttons() { return buttons_; }
  void setHeld(bool held) { stack_.setHeld(held); }
  void flush() const { xcb_flush(get()); }

 private:
  class CompositorWatch;

  X11Desktop(std::unique_ptr<X11Connection> connection, MainLoop& loop, DesktopHandlers handlers);

  void internAtoms();
  void findVisuals();
  /// Begins to hear of the server's changes, and reads how it is.
  void observe();
  void selectRootEvents();
  void handle(const xcb_generic_event_t& event);
  [[nodiscard]] bool concernsMonitors(const xcb_generic_event_t& event) const;
  void reloadSoon();
  /// False when nothing has changed.
  bool readMonitors();
  [[nodiscard]] std::vector<Rect> readWorkAreas() const;
  [[nodiscard]] ClickThrough findClickThrough(const std::vector<X11Monitor>& monitors) const;
  [[nodiscard]] bool isMutter() const;

  std::unique_ptr<X11Connection> connection_;
  MainLoop& loop_;
  DesktopHandlers handlers_;
  std::map<std::string_view, xcb_atom_t> atoms_;
  X11Visual translucent_;
  X11Visual opaque_;
  std::vector<X11Monitor> monitors_;
  std::vector<Rect> workAreas_;
  ClickThrough clickThrough_ = ClickThrough::nothing;
  bool watchful_ = false;
  Signal<xcb_window_t> exposed_;
  Signal<xcb_button_press_event_t> buttons_;
  X11WindowStack stack_;
  X11PaintRounds paintRounds_;
  std::unique_ptr<CompositorWatch> compositor_;
  Registration reload_;
  Registration loss_;
};

}  // namespace sentrel
