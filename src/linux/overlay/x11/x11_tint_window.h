// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/x11/x11_overlay_window.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// The window of the alert's tint. It flashes by being cleared to a new colour, or, where a picture costs the
/// compositor more than that, by the opacity of the whole window, without any new picture. Main thread.
class X11TintWindow {
 public:
  explicit X11TintWindow(X11Desktop& desktop);

  void place(const Rect& pixels) { window_.place(pixels); }
  void setMapped(bool mapped) { window_.setMapped(mapped); }
  void setLevel(TintLevel level);

 private:
  X11OverlayWindow window_;
  bool fades_;
  TintLevel level_ = 0;
};

}  // namespace sentrel
