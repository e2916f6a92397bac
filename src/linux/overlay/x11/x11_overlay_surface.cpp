// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_surface.h"

#include <algorithm>
#include <utility>

#include "linux/overlay/painter/notice_painter.h"

namespace sentrel {

namespace {

using Look = X11OverlayWindow::Look;

}  // namespace

X11OverlaySurface::Windows::Windows(X11Desktop& desktop, bool translucentWindows)
    : translucent(translucentWindows),
      banner(desktop, translucent ? Look::translucent : Look::opaque, "sentrel banner") {
  // An unblended window would hide the screen: without blending there is only what may be opaque.
  if (!translucent) return;
  scene.emplace(desktop);
  tint.emplace(desktop);
  hint.emplace(desktop, Look::translucent, "sentrel hint");
}

X11OverlaySurface::X11OverlaySurface(std::shared_ptr<X11SurfaceList> list, std::uint64_t screenId)
    : list_(std::move(list)), screenId_(screenId) {
  list_->surfaces.push_back(this);
}

X11OverlaySurface::~X11OverlaySurface() {
  std::erase(list_->surfaces, this);
  release();
  flush();
}

void X11OverlaySurface::present(const OverlayScene& scene) {
  scene_ = scene;
  refresh();
}

void X11OverlaySurface::setTint(TintLevel level) {
  if (level == tint_) return;
  tint_ = level;
  if (!windows_) return;
  applyTint(painted_.pixels);
  flush();
}

void X11OverlaySurface::refresh() {
  const X11Monitor* on = monitor();
  if (on == nullptr || !scene_) {
    release();
    flush();
    return;
  }
  X11Desktop& desktop = *list_->desktop;
  if (!windows_ || windows_->translucent != desktop.blendsWindows()) {
    release();
    windows_ = std::make_unique<Windows>(desktop, desktop.blendsWindows());
  }
  paintPictures(*on);
  if (windows_->scene) windows_->scene->present(*scene_, on->pixels, on->scale);
  applyTint(on->pixels);
  if (windows_->hint) windows_->hint->setShown(true);
  windows_->banner.setShown(scene_->banner);
  flush();
}

void X11OverlaySurface::release() {
  windows_.reset();
  painted_ = {};
}

void X11OverlaySurface::flush() const {
  if (list_->desktop != nullptr) list_->desktop->flush();
}

const X11Monitor* X11OverlaySurface::monitor() const {
  if (list_->desktop == nullptr) return nullptr;
  const auto& monitors = list_->desktop->monitors();
  const auto found = std::ranges::find(monitors, screenId_, [](const X11Monitor& m) { return m.screen.id; });
  return found == monitors.end() ? nullptr : &*found;
}

// Ahead of their use: when an alert comes, its banner has only to be mapped.
void X11OverlaySurface::paintPictures(const X11Monitor& monitor) {
  const Painted wanted{monitor.pixels, monitor.scale, scene_->shortcutInHint};
  if (wanted == painted_) return;
  painted_ = wanted;
  const Notice banner = paintBanner(monitor.pixels, monitor.scale,
                                    windows_->translucent ? BannerStyle::translucent : BannerStyle::opaque);
  windows_->banner.setPicture(banner.image, banner.at.x(), banner.at.y());
  if (!windows_->hint) return;
  const Notice hint = paintHint(monitor.pixels, monitor.scale, wanted.keys);
  windows_->hint->setPicture(hint.image, hint.at.x(), hint.at.y());
}

void X11OverlaySurface::applyTint(const Rect& pixels) {
  if (!windows_->tint) return;
  windows_->tint->place(pixels);
  windows_->tint->setLevel(tint_);
  // During an alert it stays through the dark moments of the flash: mapping costs more than clearing.
  windows_->tint->setMapped(tint_ > 0 || scene_->banner);
}

}  // namespace sentrel
