// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/x11/x11_overlay_window.h"
#include "platform/overlay_surface.h"
#include "support/frame.h"
#include "support/registration.h"

// The windows of one screen, a window a layer. None must outlive its desktop. Main thread.
namespace sentrel {

/// The window of stripes and veil.
///
/// Each row of the pattern is the one above, moved by one pixel. So the server gets a strip of it, a few rows
/// high and wide enough for every row, and copies that down the window by itself: a full screen costs a few
/// hundred kilobytes, and what has to be drawn again costs nothing here. Where pictures must come in one
/// piece, the strip is first copied down a picture off the screen.
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

  void uploadStrip();
  void dropStrip();
  void copyStrip(xcb_drawable_t target) const;
  void showInOnePiece(const Rect& pixels);

  X11OverlayWindow window_;
  bool inOnePiece_;
  xcb_gcontext_t graphics_;
  Content content_;
  xcb_pixmap_t strip_ = XCB_NONE;
  int stripRows_ = 0;
  Registration exposures_;
};

/// The window of the alert's tint. It flashes by being cleared to a new colour, or, where a picture costs the
/// compositor more than that, by the opacity of the whole window, without any new picture.
class X11TintWindow {
 public:
  explicit X11TintWindow(X11Desktop& desktop);
  void show(TintLevel level, const Rect& pixels, bool mapped);

 private:
  X11OverlayWindow window_;
  bool fades_;
  TintLevel level_ = 0;
};

/// The window of a finished picture, banner or hint. The picture lives on the server as the window's
/// background, so that nothing has to be drawn again and no copy is kept here.
class X11NoticeWindow {
 public:
  X11NoticeWindow(X11Desktop& desktop, X11OverlayWindow::Look look, std::string_view name);
  /// An opaque window takes the shape of the picture's opaque area.
  void setNotice(const Notice& notice);
  void setShown(bool shown) { window_.setMapped(shown); }

 private:
  X11OverlayWindow window_;
  X11OverlayWindow::Look look_;
};

/// The window of the onlooker's picture: opaque where it can be, so that it needs no compositing manager.
class X11RetroWindow {
 public:
  X11RetroWindow(X11Desktop& desktop, const X11Monitor& monitor);
  ~X11RetroWindow();
  X11RetroWindow(const X11RetroWindow&) = delete;
  X11RetroWindow& operator=(const X11RetroWindow&) = delete;

  [[nodiscard]] xcb_window_t id() const { return window_.id(); }
  /// Paints picture and dot, and shows the window.
  void show(const RetroPicture& picture);
  void setBlink(BlinkLevel level);

 private:
  void paintDot(BlinkLevel level);
  void useAsBackground(const Rect& changed);

  X11OverlayWindow window_;
  RetroPainter painter_;
  FrameMemory<std::uint32_t> pixels_;  // without the dot
  xcb_pixmap_t pixmap_;                // the window's background
};

/// What one screen of an X server shows, brought to the monitor of the moment: it follows its monitor, the
/// compositing manager and the server as they change, go and come back. Main thread.
class X11OverlaySurface final : public DesktopSurface<X11Desktop> {
 public:
  using DesktopSurface::DesktopSurface;

  void refresh() override;
  void release() override { windows_.reset(); }

 private:
  /// Everything on the server; rebuilt when the way of showing changes.
  struct Windows {
    Windows(X11Desktop& desktop, bool translucent);
    bool translucent;
    std::optional<X11SceneWindow> scene;
    std::optional<X11TintWindow> tint;
    std::optional<X11NoticeWindow> hint;
    X11NoticeWindow banner;
    std::optional<X11RetroWindow> picture;
  };

  void tintChanged() override;
  void pictureChanged(const std::optional<RetroPicture>& former) override;
  [[nodiscard]] const X11Monitor* findMonitor() const;
  void paintNotices(bool keys);
  void showTint();
  void showPicture();
  void keepPictureOnTop();

  std::unique_ptr<Windows> windows_;
  X11Monitor monitor_;        // that the windows are painted for
  std::optional<bool> keys_;  // whether the hint on the server shows the keys
};

/// The overlay on an X server; its display as in DISPLAY.
using X11OverlayBackend = DesktopOverlayBackend<X11Desktop, X11OverlaySurface>;

}  // namespace sentrel
