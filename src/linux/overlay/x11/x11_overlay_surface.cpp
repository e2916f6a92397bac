// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_surface.h"

#include <xcb/shape.h>

#include <QPainter>
#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace sentrel {

namespace {

using Look = X11OverlayWindow::Look;

// Few enough rows to send, many enough to cover a screen with few copies.
constexpr int mostStripRows = 32;

/// The rows of the picture from the first to the last pixel that is more than half there.
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

/// A window that takes new sizes is larger than its picture, and nothing may be seen there.
Look lookOfPicture(const X11Desktop& desktop) {
  const bool translucent = desktop.clickThrough() == ClickThrough::newSizes && desktop.blendsWindows();
  return translucent ? Look::translucent : Look::opaque;
}

}  // namespace

X11SceneWindow::X11SceneWindow(X11Desktop& desktop)
    : window_(desktop, X11Layer::scene, Look::translucent, "sentrel scene"),
      inOnePiece_(desktop.clickThrough() == ClickThrough::newSizes),
      graphics_(xcb_generate_id(window_.connection())) {
  const std::uint32_t exposures = 0;  // no event for every copy
  xcb_create_gc(window_.connection(), graphics_, window_.id(), XCB_GC_GRAPHICS_EXPOSURES, &exposures);
  if (inOnePiece_) return;  // such a server never throws anything away
  window_.selectExposures();
  // The server asks for content whenever it has thrown it away. The whole window is drawn at once.
  exposures_ = desktop.exposed().connect([this](xcb_window_t window) {
    if (window == window_.id() && window_.isMapped()) copyStrip(window_.id());
  });
}

X11SceneWindow::~X11SceneWindow() {
  dropStrip();
  xcb_free_gc(window_.connection(), graphics_);
}

void X11SceneWindow::present(const OverlayScene& scene, const Rect& pixels, double scale) {
  if (!ScenePainter::covers(scene)) {
    window_.setMapped(false);
    dropStrip();
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
  xcb_free_pixmap(window_.connection(), picture);  // the window keeps it
}

void X11SceneWindow::uploadStrip() {
  dropStrip();
  const auto& [scene, width, height, scale] = content_;
  stripRows_ = std::min(mostStripRows, height);
  const int columns = width + height - stripRows_;
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(columns) * static_cast<std::size_t>(stripRows_));
  ScenePainter(scene, width, height, scale).paint(columns, stripRows_, pixels);
  strip_ = xcb_generate_id(window_.connection());
  const std::uint8_t depth = window_.visual().depth;
  xcb_create_pixmap(window_.connection(), depth, strip_, window_.id(), static_cast<std::uint16_t>(columns),
                    static_cast<std::uint16_t>(stripRows_));
  putX11Image(window_.connection(), strip_, depth, {0, 0, columns, stripRows_}, pixels.data());
}

void X11SceneWindow::dropStrip() {
  if (strip_ != XCB_NONE) xcb_free_pixmap(window_.connection(), strip_);
  strip_ = XCB_NONE;
}

void X11SceneWindow::copyStrip(xcb_drawable_t target) const {
  for (int y = 0; y < content_.height; y += stripRows_) {
    // The last copy overlaps the one before rather than reach below the window.
    const auto row = static_cast<std::int16_t>(std::min(y, content_.height - stripRows_));
    xcb_copy_area(window_.connection(), strip_, target, graphics_, row, 0, 0, row,
                  static_cast<std::uint16_t>(content_.width), static_cast<std::uint16_t>(stripRows_));
  }
}

X11TintWindow::X11TintWindow(X11Desktop& desktop)
    : window_(desktop, X11Layer::tint, Look::translucent, "sentrel tint"),
      fades_(desktop.clickThrough() == ClickThrough::newSizes) {
  if (!fades_) return;
  window_.setBackground(premultipliedTint(strongestTint));
  window_.setOpacity(0);
}

void X11TintWindow::show(TintLevel level, const Rect& pixels, bool mapped) {
  window_.place(pixels);
  if (std::exchange(level_, level) != level) {
    if (fades_) {
      window_.setOpacity(std::clamp(static_cast<double>(level) / strongestTint, 0.0, 1.0));
    } else {
      window_.setBackground(premultipliedTint(level));
    }
  }
  window_.setMapped(mapped);
}

X11NoticeWindow::X11NoticeWindow(X11Desktop& desktop, Look look, std::string_view name)
    : window_(desktop, X11Layer::notice, look, name), look_(look) {}

void X11NoticeWindow::setNotice(const Notice& notice) {
  const auto& [image, at] = notice;
  const Rect whole{0, 0, image.width(), image.height()};
  const xcb_pixmap_t pixmap = window_.createBackground(whole.width, whole.height);
  // 32-bit rows of a QImage have no gaps.
  putX11Image(window_.connection(), pixmap, window_.visual().depth, whole,
              reinterpret_cast<const std::uint32_t*>(image.constBits()));
  window_.setBackgroundPicture(pixmap);
  xcb_free_pixmap(window_.connection(), pixmap);  // the window keeps it
  if (look_ == Look::opaque) {
    const auto rows = opaqueRows(image);
    xcb_shape_rectangles(window_.connection(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING,
                         XCB_CLIP_ORDERING_YX_BANDED, window_.id(), 0, 0,
                         static_cast<std::uint32_t>(rows.size()), rows.data());
  }
  window_.place({at.x(), at.y(), whole.width, whole.height});
  window_.repaint(whole);
}

X11RetroWindow::X11RetroWindow(X11Desktop& desktop, const X11Monitor& monitor)
    : window_(desktop, X11Layer::picture, lookOfPicture(desktop), "sentrel picture"),
      painter_(monitor.scale),
      pixels_(static_cast<std::size_t>(painter_.width()) * static_cast<std::size_t>(painter_.height())),
      pixmap_(window_.createBackground(painter_.width(), painter_.height())) {
  window_.place(placeRetro(monitor.pixels, monitor.scale));
}

X11RetroWindow::~X11RetroWindow() {
  xcb_free_pixmap(window_.connection(), pixmap_);
}

void X11RetroWindow::show(const RetroPicture& picture) {
  painter_.paint(picture.picture.get(), pixels_);
  const Rect whole{0, 0, painter_.width(), painter_.height()};
  putX11Image(window_.connection(), pixmap_, window_.visual().depth, whole, pixels_.data());
  paintDot(picture.blink);
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
  putX11Image(window_.connection(), pixmap_, window_.visual().depth,
              {place.x(), place.y(), place.width(), place.height()},
              reinterpret_cast<const std::uint32_t*>(patch.constBits()));
}

/// Set anew after every change: a server may have taken a copy.
void X11RetroWindow::useAsBackground(const Rect& changed) {
  window_.setBackgroundPicture(pixmap_);
  window_.repaint(changed);
}

X11OverlaySurface::Windows::Windows(X11Desktop& desktop, bool translucentWindows)
    : translucent(translucentWindows),
      banner(desktop, translucent ? Look::translucent : Look::opaque, "sentrel banner") {
  // An unblended window would hide the screen: without blending there is only what may be opaque.
  if (!translucent) return;
  scene.emplace(desktop);
  tint.emplace(desktop);
  hint.emplace(desktop, Look::translucent, "sentrel hint");
}

void X11OverlaySurface::tintChanged() {
  if (!windows_) return;
  showTint();
  keepPictureOnTop();
}

void X11OverlaySurface::pictureChanged(const std::optional<RetroPicture>& former) {
  if (!windows_) return;
  const auto& picture = content().picture;
  if (picture && former && picture->picture == former->picture) {
    windows_->picture->setBlink(picture->blink);
  } else {
    showPicture();
  }
}

void X11OverlaySurface::refresh() {
  const X11Monitor* monitor = findMonitor();
  if (monitor == nullptr || !content().scene) return release();
  const OverlayScene& scene = *content().scene;
  const bool translucent = desktop()->blendsWindows();
  if (!windows_ || windows_->translucent != translucent || *monitor != monitor_) {
    monitor_ = *monitor;
    keys_.reset();
    windows_.reset();
    windows_ = std::make_unique<Windows>(*desktop(), translucent);
  }
  paintNotices(scene.shortcutInHint);
  if (windows_->scene) windows_->scene->present(scene, monitor_.pixels, monitor_.scale);
  showTint();
  if (windows_->hint) windows_->hint->setShown(true);
  windows_->banner.setShown(scene.banner);
  if (!windows_->picture) showPicture();
  keepPictureOnTop();
}

const X11Monitor* X11OverlaySurface::findMonitor() const {
  if (desktop() == nullptr) return nullptr;
  const auto& monitors = desktop()->monitors();
  const auto found = std::ranges::find(monitors, screenId(), [](const X11Monitor& m) { return m.screen.id; });
  return found == monitors.end() ? nullptr : &*found;
}

/// Ahead of their use: when an alert comes, its banner has only to be mapped.
void X11OverlaySurface::paintNotices(bool keys) {
  if (std::exchange(keys_, keys) == keys) return;
  windows_->banner.setNotice(
      paintBanner(monitor_.pixels, monitor_.scale,
                  windows_->translucent ? BannerStyle::translucent : BannerStyle::opaque));
  if (windows_->hint) windows_->hint->setNotice(paintHint(monitor_.pixels, monitor_.scale, keys));
}

/// During an alert its window stays through the dark moments of the flash: mapping costs more than clearing.
void X11OverlaySurface::showTint() {
  const TintLevel level = content().tint;
  if (windows_->tint) windows_->tint->show(level, monitor_.pixels, level > 0 || content().scene->banner);
}

void X11OverlaySurface::showPicture() {
  if (!content().picture) return windows_->picture.reset();
  if (!windows_->picture) windows_->picture.emplace(*desktop(), monitor_);
  windows_->picture->show(*content().picture);
}

/// Under a Wayland compositor, what is mapped last may lie above all others whatever the server says (Mutter
/// orders such windows anew only along with ordinary ones). Then this window is made anew, as the last.
void X11OverlaySurface::keepPictureOnTop() {
  if (!windows_->picture || desktop()->stack().lastMapped() == windows_->picture->id()) return;
  windows_->picture.reset();
  showPicture();
}

}  // namespace sentrel
