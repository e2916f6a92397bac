// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_scene_window.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "linux/overlay/painter/scene_painter.h"

namespace sentrel {

namespace {
// Few enough rows to send, many enough to cover a screen with few copies.
constexpr int mostStripRows = 32;
}  // namespace

X11SceneWindow::X11SceneWindow(X11Desktop& desktop)
    : connection_(desktop.connection()),
      window_(desktop, OverlayLayer::scene, X11OverlayWindow::Look::translucent, "sentrel scene"),
      inOnePiece_(desktop.clickThrough() == ClickThrough::newSizes),
      graphics_(xcb_generate_id(connection_.get())) {
  const std::uint32_t exposures = 0;  // no event for every copy
  xcb_create_gc(connection_.get(), graphics_, window_.id(), XCB_GC_GRAPHICS_EXPOSURES, &exposures);
  if (inOnePiece_) return;  // such a server never throws anything away
  window_.selectExposures();
  // The server asks for content whenever it has thrown it away. The whole window is drawn at once.
  exposures_ = desktop.exposed().connect([this](xcb_window_t window) {
    if (window == window_.id() && window_.isMapped()) copyStrip(window_.id());
  });
}

X11SceneWindow::~X11SceneWindow() {
  dropStrip();
  xcb_free_gc(connection_.get(), graphics_);
}

void X11SceneWindow::present(const OverlayScene& scene, const Rect& pixels, double scale) {
  if (!ScenePainter::covers(scene)) {
    hide();
    return;
  }
  Content content{{}, pixels.width, pixels.height, scale};
  content.scene.stripes = scene.stripes;
  content.scene.veilAlpha = scene.veilAlpha;
  const bool changed = content != content_ || strip_ == XCB_NONE;
  if (changed) {
    content_ = content;
    uploadStrip();
  }
  if (inOnePiece_) {
    if (changed || pixels != window_.pixels()) showInOnePiece(pixels);
    return;
  }
  window_.place(pixels);
  if (changed || !window_.isMapped()) {
    window_.setMapped(true);
    copyStrip(window_.id());
  }
}

void X11SceneWindow::showInOnePiece(const Rect& pixels) {
  const xcb_pixmap_t picture = window_.createBackground(pixels.width, pixels.height);
  copyStrip(picture);
  window_.setBackgroundPicture(picture);
  window_.place(pixels);
  window_.repaint({0, 0, pixels.width, pixels.height});
  window_.setMapped(true);
  xcb_free_pixmap(connection_.get(), picture);  // the window keeps it
}

void X11SceneWindow::hide() {
  window_.setMapped(false);
  dropStrip();
}

void X11SceneWindow::uploadStrip() {
  dropStrip();
  const auto& [scene, width, height, scale] = content_;
  stripRows_ = std::min(mostStripRows, height);
  const int columns = width + height - stripRows_;
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(columns) * static_cast<std::size_t>(stripRows_));
  ScenePainter(scene, width, height, scale).paint(columns, stripRows_, pixels);
  strip_ = xcb_generate_id(connection_.get());
  const std::uint8_t depth = window_.visual().depth;
  xcb_create_pixmap(connection_.get(), depth, strip_, window_.id(), static_cast<std::uint16_t>(columns),
                    static_cast<std::uint16_t>(stripRows_));
  connection_.putImage(strip_, depth, {0, 0, columns, stripRows_}, pixels.data());
}

void X11SceneWindow::dropStrip() {
  if (strip_ != XCB_NONE) xcb_free_pixmap(connection_.get(), strip_);
  strip_ = XCB_NONE;
}

void X11SceneWindow::copyStrip(xcb_drawable_t target) const {
  for (int y = 0; y < content_.height; y += stripRows_) {
    // The last copy overlaps the one before rather than reach below the window.
    const auto row = static_cast<std::int16_t>(std::min(y, content_.height - stripRows_));
    xcb_copy_area(connection_.get(), strip_, target, graphics_, row, 0, 0, row,
                  static_cast<std::uint16_t>(content_.width), static_cast<std::uint16_t>(stripRows_));
  }
}

}  // namespace sentrel
