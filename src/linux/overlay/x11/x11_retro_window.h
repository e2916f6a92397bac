// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/x11/x11_desktop.h"
#include "linux/overlay/x11/x11_overlay_window.h"
#include "platform/retro_surface.h"
#include "support/frame.h"

namespace sentrel {

/// The window of the picture-in-picture on one monitor: opaque where it can, so that it needs no compositing
/// manager, and above all other windows of ours. Must not outlive its desktop. Main thread.
class X11RetroWindow {
 public:
  X11RetroWindow(X11Desktop& desktop, const X11Monitor& monitor);
  ~X11RetroWindow();
  X11RetroWindow(const X11RetroWindow&) = delete;
  X11RetroWindow& operator=(const X11RetroWindow&) = delete;

  /// Paints the picture, null as black, with the dot, and shows the window.
  void show(const GreyPicture* picture, BlinkLevel blink);
  void setBlink(BlinkLevel level);

 private:
  void paintDot(BlinkLevel level);
  void useAsBackground(const Rect& changed);

  const X11Connection& connection_;
  X11OverlayWindow window_;
  RetroPainter painter_;
  FrameMemory<std::uint32_t> pixels_;  // without the dot
  xcb_pixmap_t pixmap_;                // the window's background
};

}  // namespace sentrel
