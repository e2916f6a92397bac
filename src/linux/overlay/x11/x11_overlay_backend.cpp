// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_backend.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {
// A server that restarts is back within seconds; one that does not is looked for twice a minute.
constexpr std::int64_t firstRetryMs = 500;
constexpr std::int64_t longestRetryMs = 30'000;
}  // namespace

X11OverlayBackend::X11OverlayBackend(MainLoop& loop, std::string display)
    : loop_(loop), display_(std::move(display)), retryMs_(firstRetryMs) {
  if (!connect()) retryLater();
  announcedScreens_ = screens();
  announcedLimitation_ = limitation();
}

X11OverlayBackend::~X11OverlayBackend() {
  for (X11OverlaySurface* surface : list_->surfaces) surface->release();
  list_->desktop = nullptr;
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
  retryMs_ = firstRetryMs;
  return true;
}

void X11OverlayBackend::retryLater() {
  retry_ = loop_.after(retryMs_, [this] { retry(); });
  retryMs_ = std::min(retryMs_ * 2, longestRetryMs);
}

void X11OverlayBackend::retry() {
  if (connect()) {
    desktopChanged();
  } else {
    retryLater();
  }
}

void X11OverlayBackend::desktopLost() {
  for (X11OverlaySurface* surface : list_->surfaces) surface->release();
  list_->desktop = nullptr;
  desktop_.reset();
  retryLater();
  announce();
}

void X11OverlayBackend::desktopChanged() {
  for (X11OverlaySurface* surface : list_->surfaces) surface->refresh();
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
