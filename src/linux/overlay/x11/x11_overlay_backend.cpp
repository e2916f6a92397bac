// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_backend.h"

#include <utility>

#include "linux/overlay/x11/x11_retro_surface.h"

namespace sentrel {

X11OverlayBackend::X11OverlayBackend(MainLoop& loop, std::string display)
    : loop_(loop), display_(std::move(display)), reconnect_(loop, [this] { return retry(); }) {
  if (!connect()) reconnect_.begin();
  announcedScreens_ = screens();
  announcedLimitation_ = limitation();
}

X11OverlayBackend::~X11OverlayBackend() {
  disconnect();
}

std::vector<Screen> X11OverlayBackend::screens() const {
  std::vector<Screen> result;
  if (!desktop_) return result;
  for (const X11Monitor& monitor : desktop_->monitors()) result.push_back(monitor.screen);
  return result;
}

std::unique_ptr<OverlaySurface> X11OverlayBackend::createSurface(const Screen& screen) {
  return std::make_unique<X11OverlaySurface>(list_, screen.id);
}

std::unique_ptr<RetroSurface> X11OverlayBackend::createRetroSurface() {
  return std::make_unique<X11RetroSurface>(list_);
}

std::string X11OverlayBackend::limitation() const {
  if (!desktop_) return "error_no_overlay";
  return desktop_->blendsWindows() ? "" : "error_no_compositing";
}

bool X11OverlayBackend::connect() {
  auto connection = X11Connection::open(display_);
  if (!connection) return false;
  X11Desktop::Handlers handlers;
  handlers.changed = [this] { desktopChanged(); };
  handlers.lost = [this] { desktopLost(); };
  handlers.event = [list = list_](const xcb_generic_event_t& event) {
    for (X11OverlaySurface* surface : list->surfaces) surface->handle(event);
  };
  desktop_ = std::make_unique<X11Desktop>(std::move(connection), loop_, std::move(handlers));
  list_->desktop = desktop_.get();
  if (!list_->surfaces.empty()) desktop_->setWatchful(true);
  return true;
}

bool X11OverlayBackend::retry() {
  if (!connect()) return false;
  desktopChanged();
  return true;
}

void X11OverlayBackend::disconnect() {
  for (X11OverlaySurface* surface : list_->surfaces) surface->release();
  for (X11RetroSurface* picture : list_->pictures) picture->release();
  list_->desktop = nullptr;
  desktop_.reset();
}

void X11OverlayBackend::desktopLost() {
  disconnect();
  reconnect_.begin();
  announce();
}

void X11OverlayBackend::desktopChanged() {
  for (X11OverlaySurface* surface : list_->surfaces) surface->refresh();
  for (X11RetroSurface* picture : list_->pictures) picture->refresh();
  announce();
}

void X11OverlayBackend::announce() {
  if (auto limit = limitation(); limit != announcedLimitation_) {
    announcedLimitation_ = std::move(limit);
    limitationChanged.emit();
  }
  if (auto now = screens(); now != announcedScreens_) {
    announcedScreens_ = std::move(now);
    screensChanged.emit();
  }
}

}  // namespace sentrel
