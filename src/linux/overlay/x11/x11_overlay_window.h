// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QRegion>
#include <cstdint>
#include <string_view>

#include <xcb/xcb.h>

#include "linux/overlay/x11/x11_desktop.h"
#include "support/geometry.h"

namespace sentrel {

/// One window of the overlay: not managed by any window manager, without input but where it takes clicks,
/// above everything. Created unmapped, transparent or black. Must not outlive its desktop. Main thread.
class X11OverlayWindow {
 public:
  enum class Look { translucent, opaque };

  X11OverlayWindow(X11Desktop& desktop, X11Layer layer, Look look, std::string_view name);
  ~X11OverlayWindow();
  X11OverlayWindow(const X11OverlayWindow&) = delete;
  X11OverlayWindow& operator=(const X11OverlayWindow&) = delete;

  [[nodiscard]] xcb_window_t id() const { return id_; }
  [[nodiscard]] xcb_connection_t* connection() const { return desktop_.get(); }
  [[nodiscard]] const X11Visual& visual() const { return visual_; }
  [[nodiscard]] const Rect& pixels() const { return pixels_; }
  [[nodiscard]] bool isMapped() const { return mapped_; }

  void place(const Rect& pixels);
  void setMapped(bool mapped);
  /// Fills the window with one premultiplied colour, also whatever becomes visible later.
  void setBackground(std::uint32_t argb);
  /// A picture of this size to be the background: as large as the window may become, and transparent where it
  /// reaches beyond its place. To be freed by the caller.
  [[nodiscard]] xcb_pixmap_t createBackground(int width, int height) const;
  /// Sends 32-bit pixels without gaps to this place of a picture of the window's depth, in as many requests
  /// as it takes.
  void putImage(xcb_pixmap_t picture, const Rect& place, const std::uint32_t* pixels) const;
  /// Takes a picture as the background, which must be set anew after every change. It is seen once the
  /// window is repainted or mapped.
  void setBackgroundPicture(xcb_pixmap_t picture);
  /// Shows the background again in this area of a mapped window, or more of it, in one piece; at once, or as
  /// soon as the compositor has taken what came before.
  void repaint(const Rect& area);
  /// Leaves nothing of the window outside of this region.
  void setShape(const QRegion& region) const;
  /// Of the whole window as it is blended, 0..1, where the compositor heeds it.
  void setOpacity(double opacity) const;
  /// Takes the pointer's buttons here, in the window's own pixels, and nowhere else.
  void takeClicks(const Rect& area) const;
  /// Asks the server to tell when content has to be drawn again.
  void selectExposures();

 private:
  void describe(std::string_view name) const;
  void configure() const;
  void takeNewSize();

  X11Desktop& desktop_;
  bool takesNewSizes_;
  const X11Visual& visual_;
  xcb_window_t id_;
  Rect pixels_;
  bool mapped_ = false;
  unsigned size_ = 0;  // which of its sizes it has
};

}  // namespace sentrel
