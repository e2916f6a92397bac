// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_backend.h"

#include <utility>

#include "linux/overlay/wayland/wayland_retro_surface.h"

namespace sentrel {

WaylandOverlayBackend::Reach WaylandOverlayBackend::probe(const std::string& display) {
  const auto connection = WaylandConnection::open(display);
  if (!connection) return Reach::absent;
  return connection->canCover() ? Reach::covers : Reach::refuses;
}

WaylandOverlayBackend::WaylandOverlayBackend(MainLoop& loop, std::string display)
    : loop_(loop), display_(std::move(display)), reconnect_(loop, [this] { return retry(); }) {
  if (!connect()) reconnect_.begin();
  announcedScreens_ = screens();
  announcedLimitation_ = limitation();
}

WaylandOverlayBackend::~WaylandOverlayBackend() {
  disconnect();
}

std::vector<Screen> WaylandOverlayBackend::screens() const {
  return desktop_ ? desktop_->screens() : std::vector<Screen>();
}

std::unique_ptr<OverlaySurface> WaylandOverlayBackend::createSurface(const Screen& screen) {
  return std::make_unique<WaylandOverlaySurface>(list_, screen.id);
}

std::unique_ptr<RetroSurface> WaylandOverlayBackend::createRetroSurface() {
  return std::make_unique<WaylandRetroSurface>(list_);
}

std::string WaylandOverlayBackend::limitation() const {
  return desktop_ ? "" : "error_no_overlay";
}

bool WaylandOverlayBackend::connect() {
  desktop_ = WaylandDesktop::open(
      display_, loop_, {.changed = [this] { desktopChanged(); }, .lost = [this] { desktopLost(); }});
  list_->desktop = desktop_.get();
  return desktop_ != nullptr;
}

bool WaylandOverlayBackend::retry() {
  if (!connect()) return false;
  desktopChanged();
  return true;
}

void WaylandOverlayBackend::disconnect() {
  for (WaylandOverlaySurface* surface : list_->surfaces) surface->release();
  list_->desktop = nullptr;
  desktop_.reset();
}

void WaylandOverlayBackend::desktopLost() {
  disconnect();
  reconnect_.begin();
  announce();
}

void WaylandOverlayBackend::desktopChanged() {
  for (WaylandOverlaySurface* surface : list_->surfaces) surface->refresh();
  announce();
}

void WaylandOverlayBackend::announce() {
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
