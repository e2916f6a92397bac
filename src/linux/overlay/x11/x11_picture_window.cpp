// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_picture_window.h"

#include <xcb/shape.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace sentrel {

namespace {

// The rows of the picture from the first to the last pixel that is more than half there.
std::vector<xcb_rectangle_t> opaqueRows(const QImage& picture) {
  std::vector<xcb_rectangle_t> rows;
  for (int y = 0; y < picture.height(); ++y) {
    const auto* row = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
    const auto* end = row + picture.width();
    const auto isThere = [](QRgb pixel) { return qAlpha(pixel) > 127; };
    const auto* first = std::find_if(row, end, isThere);
    if (first == end) continue;
    const auto* last = end - 1;
    while (!isThere(*last)) --last;
    rows.push_back({static_cast<std::int16_t>(first - row), static_cast<std::int16_t>(y),
                    static_cast<std::uint16_t>(last - first + 1), 1});
  }
  return rows;
}

}  // namespace

X11PictureWindow::X11PictureWindow(X11Desktop& desktop, X11OverlayWindow::Look look, std::string_view name)
    : window_(desktop, OverlayLayer::notice, look, name), look_(look) {}

void X11PictureWindow::setPicture(const QImage& picture, int x, int y) {
  const X11Connection& connection = window_.connection();
  const xcb_pixmap_t pixmap = window_.createBackground(picture.width(), picture.height());
  // 32-bit rows of a QImage have no gaps.
  connection.putImage(pixmap, window_.visual().depth, {0, 0, picture.width(), picture.height()},
                      reinterpret_cast<const std::uint32_t*>(picture.constBits()));
  window_.setBackgroundPicture(pixmap);
  xcb_free_pixmap(connection.get(), pixmap);  // the window keeps it
  if (look_ == X11OverlayWindow::Look::opaque) shape(picture);
  window_.place({x, y, picture.width(), picture.height()});
  window_.repaint({0, 0, picture.width(), picture.height()});
}

void X11PictureWindow::shape(const QImage& picture) {
  const auto rows = opaqueRows(picture);
  xcb_shape_rectangles(window_.connection().get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                       XCB_CLIP_ORDERING_YX_BANDED, window_.id(), 0, 0,
                       static_cast<std::uint32_t>(rows.size()), rows.data());
}

}  // namespace sentrel
