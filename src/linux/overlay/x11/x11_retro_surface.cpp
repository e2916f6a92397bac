// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_retro_surface.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {

std::optional<X11Monitor> mainMonitor(const X11Desktop* desktop) {
  if (desktop == nullptr) return {};
  const auto& monitors = desktop->monitors();
  const auto found = std::ranges::find_if(monitors, [](const X11Monitor& m) { return m.screen.isMain; });
  return found == monitors.end() ? std::nullopt : std::optional(*found);
}

}  // namespace

X11RetroSurface::X11RetroSurface(std::shared_ptr<X11SurfaceList> list) : list_(std::move(list)) {
  list_->surfaces.push_back(this);
  refresh();
}

X11RetroSurface::~X11RetroSurface() {
  std::erase(list_->surfaces, this);
  release();
  flush();
}

void X11RetroSurface::present(std::shared_ptr<const GreyPicture> picture) {
  picture_ = std::move(picture);
  if (window_) window_->show(picture_.get(), blink_);
  flush();
}

void X11RetroSurface::setBlink(BlinkLevel level) {
  blink_ = level;
  if (window_) window_->setBlink(level);
  flush();
}

void X11RetroSurface::refresh() {
  auto monitor = mainMonitor(list_->desktop);
  if (monitor != monitor_) {
    release();
    monitor_ = std::move(monitor);
  }
  if (!window_ && monitor_) makeWindow();
}

/// Under a Wayland compositor, what is mapped last may lie above all others whatever the server says (Mutter
/// orders such windows anew only along with ordinary ones). Then this window is made anew, as the last.
void X11RetroSurface::makeWindow() {
  X11Desktop& desktop = *list_->desktop;
  window_ = std::make_unique<X11RetroWindow>(desktop, *monitor_);
  window_->show(picture_.get(), blink_);
  flush();
  othersMapped_ = desktop.stack().mapped().connect([this, &desktop](OverlayLayer layer) {
    if (layer != OverlayLayer::picture) renewal_ = desktop.loop().after(0, [this] { makeWindow(); });
  });
}

void X11RetroSurface::release() {
  othersMapped_.reset();
  renewal_.reset();
  window_.reset();
  monitor_.reset();
}

void X11RetroSurface::flush() const {
  if (list_->desktop != nullptr) list_->desktop->flush();
}

}  // namespace sentrel
