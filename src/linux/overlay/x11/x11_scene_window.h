// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/x11/x11_overlay_window.h"
#include "linux/overlay/x11/x11_shared_buffer.h"
#include "support/main_loop.h"

namespace sentrel {

/// The window of stripes and veil. It paints when the server asks for content or when the scene changes, into
/// memory that the server reads directly, and lets go of that memory soon after. Main thread.
class X11SceneWindow {
 public:
  X11SceneWindow(X11Connection& connection, X11WindowStack& stack, MainLoop& loop);
  ~X11SceneWindow();
  X11SceneWindow(const X11SceneWindow&) = delete;
  X11SceneWindow& operator=(const X11SceneWindow&) = delete;

  /// Shows what covers the screen of this rectangle, or hides the window when nothing does.
  void present(const OverlayScene& scene, const Rect& pixels, double scale);
  void hide();

  /// Any event of the connection.
  void handle(const xcb_generic_event_t& event);

 private:
  void handleExposure(const xcb_expose_event_t& event);
  void finishTransfer();
  void paint();
  bool paintShared(const ScenePainter& painter);
  void paintPieces(const ScenePainter& painter) const;

  X11Connection& connection_;
  MainLoop& loop_;
  X11OverlayWindow window_;
  xcb_gcontext_t graphics_;
  OverlayScene scene_;
  double scale_ = 1;
  bool drawable_ = false;      // the server has asked for content since the window came or was resized
  bool transferring_ = false;  // the server still reads the buffer
  bool outdated_ = false;      // the scene has changed meanwhile
  std::unique_ptr<X11SharedBuffer> buffer_;
  Registration release_;
};

}  // namespace sentrel
