// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_surface.h"

#include <algorithm>
#include <utility>

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

X11OverlaySurface::~X11OverlaySurface() {
  release();
}

void X11OverlaySurface::present(const OverlayScene& scene) {
  scene_ = scene;
  refresh();
}

void X11OverlaySurface::setTint(TintLevel level) {
  if (std::exchange(tint_, level) == level || !windows_) return;
  showTint();
  keepPictureOnTop();
  desktop()->flush();
}

void X11OverlaySurface::setPicture(const std::optional<RetroPicture>& picture) {
  const bool same = picture && picture_ && picture->picture == picture_->picture;
  picture_ = picture;
  if (!windows_) return;
  if (same) {
    windows_->picture->setBlink(picture->blink);
  } else {
    showPicture();
  }
  desktop()->flush();
}

void X11OverlaySurface::refresh() {
  const X11Monitor* monitor = findMonitor();
  if (monitor == nullptr || !scene_) {
    release();
    if (desktop() != nullptr) desktop()->flush();
    return;
  }
  const bool translucent = desktop()->blendsWindows();
  if (!windows_ || windows_->translucent != translucent || *monitor != monitor_) {
    monitor_ = *monitor;
    keys_.reset();
    windows_.reset();
    windows_ = std::make_unique<Windows>(*desktop(), translucent);
  }
  paintNotices(scene_->shortcutInHint);
  if (windows_->scene) windows_->scene->present(*scene_, monitor_.pixels, monitor_.scale);
  showTint();
  if (windows_->hint) windows_->hint->setShown(true);
  windows_->banner.setShown(scene_->banner);
  if (!windows_->picture) showPicture();
  keepPictureOnTop();
  desktop()->flush();
}

void X11OverlaySurface::release() {
  windows_.reset();
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
  if (windows_->tint) windows_->tint->show(tint_, monitor_.pixels, tint_ > 0 || scene_->banner);
}

void X11OverlaySurface::showPicture() {
  if (!picture_) return windows_->picture.reset();
  if (!windows_->picture) windows_->picture.emplace(*desktop(), monitor_);
  windows_->picture->show(*picture_);
}

/// Under a Wayland compositor, what is mapped last may lie above all others whatever the server says (Mutter
/// orders such windows anew only along with ordinary ones). Then this window is made anew, as the last.
void X11OverlaySurface::keepPictureOnTop() {
  if (!windows_->picture || desktop()->stack().lastMapped() == windows_->picture->id()) return;
  windows_->picture.reset();
  showPicture();
}

}  // namespace sentrel
