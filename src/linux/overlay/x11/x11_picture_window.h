// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>

#include "linux/overlay/x11/x11_overlay_window.h"

namespace sentrel {

/// A window that shows one finished picture. The picture lives on the server as the window's background, so
/// that nothing has to be drawn again and no copy is kept here. Main thread.
class X11PictureWindow {
 public:
  X11PictureWindow(X11Desktop& desktop, X11OverlayWindow::Look look, std::string_view name);

  /// Takes a premultiplied ARGB32 picture and its place on the root window. An opaque window takes the shape
  /// of the picture's opaque part.
  void setPicture(const QImage& picture, int x, int y);
  void setShown(bool shown) { window_.setMapped(shown); }

 private:
  void shape(const QImage& picture);

  X11OverlayWindow window_;
  X11OverlayWindow::Look look_;
};

}  // namespace sentrel
