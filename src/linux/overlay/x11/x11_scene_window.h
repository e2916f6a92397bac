// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/overlay/x11/x11_overlay_window.h"
#include "platform/overlay_surface.h"
#include "support/registration.h"

namespace sentrel {

/// The window of stripes and veil.
///
/// Each row of the pattern is the one above, moved by one pixel. So the server gets a strip of it, a few rows
/// high and wide enough for every row, and copies that down the window by itself: a full screen costs a few
/// hundred kilobytes, and what has to be drawn again costs nothing here. Where pictures must come in one
/// piece, the strip is first copied down a picture off the screen. Main thread.
class X11SceneWindow {
 public:
  explicit X11SceneWindow(X11Desktop& desktop);
  ~X11SceneWindow();
  X11SceneWindow(const X11SceneWindow&) = delete;
  X11SceneWindow& operator=(const X11SceneWindow&) = delete;

  /// Shows what covers the screen of this rectangle, or hides the window when nothing does.
  void present(const OverlayScene& scene, const Rect& pixels, double scale);

 private:
  /// All that the strip depends on.
  struct Content {
    OverlayScene scene;
    int width = 0;
    int height = 0;
    double scale = 1;
    bool operator==(const Content&) const = default;
  };

  void hide();
  void uploadStrip();
  void dropStrip();
  void copyStrip(xcb_drawable_t target) const;
  void showInOnePiece(const Rect& pixels);

  const X11Connection& connection_;
  X11OverlayWindow window_;
  bool inOnePiece_;
  xcb_gcontext_t graphics_;
  Content content_;
  xcb_pixmap_t strip_ = XCB_NONE;
  int stripRows_ = 0;
  Registration exposures_;
};

}  // namespace sentrel
