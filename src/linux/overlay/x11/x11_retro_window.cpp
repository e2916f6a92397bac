// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_retro_window.h"

#include <QPainter>
#include <cstddef>
#include <span>

namespace sentrel {

namespace {
// A window that takes new sizes is larger than its picture, and nothing may be seen there.
X11OverlayWindow::Look lookOn(const X11Desktop& desktop) {
  const bool translucent = desktop.clickThrough() == ClickThrough::newSizes && desktop.blendsWindows();
  return translucent ? X11OverlayWindow::Look::translucent : X11OverlayWindow::Look::opaque;
}
}  // namespace

X11RetroWindow::X11RetroWindow(X11Desktop& desktop, const X11Monitor& monitor)
    : connection_(desktop.connection()),
      window_(desktop, OverlayLayer::picture, lookOn(desktop), "sentrel picture"),
      painter_(monitor.scale),
      pixels_(static_cast<std::size_t>(painter_.width()) * static_cast<std::size_t>(painter_.height())),
      pixmap_(window_.createBackground(painter_.width(), painter_.height())) {
  window_.place(placeRetro(monitor.pixels, monitor.scale));
}

X11RetroWindow::~X11RetroWindow() {
  xcb_free_pixmap(connection_.get(), pixmap_);
}

void X11RetroWindow::show(const GreyPicture* picture, BlinkLevel blink) {
  painter_.paint(picture, pixels_);
  const Rect whole{0, 0, painter_.width(), painter_.height()};
  connection_.putImage(pixmap_, window_.visual().depth, whole, pixels_.data());
  paintDot(blink);
  useAsBackground(whole);
  window_.setMapped(true);
}

void X11RetroWindow::setBlink(BlinkLevel level) {
  paintDot(level);
  const QRect& dot = painter_.dotPlace();
  useAsBackground({dot.x(), dot.y(), dot.width(), dot.height()});
}

void X11RetroWindow::paintDot(BlinkLevel level) {
  const QRect& place = painter_.dotPlace();
  const std::ptrdiff_t width = painter_.width();
  const auto* first = reinterpret_cast<const uchar*>(pixels_.data() + place.y() * width + place.x());
  const QImage below(first, place.width(), place.height(), width * 4, QImage::Format_RGB32);
  QImage patch = below.copy();
  QPainter(&patch).drawImage(0, 0, painter_.dot(level));
  connection_.putImage(pixmap_, window_.visual().depth, {place.x(), place.y(), place.width(), place.height()},
                       reinterpret_cast<const std::uint32_t*>(patch.constBits()));
}

/// Set anew after every change: a server may have taken a copy.
void X11RetroWindow::useAsBackground(const Rect& changed) {
  window_.setBackgroundPicture(pixmap_);
  window_.repaint(changed);
}

}  // namespace sentrel
