// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "linux/overlay/reconnect.h"
#include "linux/overlay/surface_list.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"

namespace sentrel {

/// The overlay on a desktop, over a connection of its own, as far as it is the same for every display server.
///
/// When the server goes, its screens go; the back end then tries to reach it again, ever more rarely, and
/// brings the screens back. Neither ends the process. Needs a Qt event loop on the main thread and, to paint,
/// a QGuiApplication of any platform.
///
/// A `List` is a SurfaceList. Its desktop has `open(display, loop, {changed, lost})`, null where the server
/// cannot be used, `isUsable()`, `screens()`, and `limitation()` as that of OverlayBackend.
template <class List>
class DesktopOverlayBackend : public OverlayBackend {
 public:
  /// Succeeds also when the server is not there yet.
  DesktopOverlayBackend(MainLoop& loop, std::string display)
      : loop_(loop), display_(std::move(display)), reconnect_(loop, [this] { return retry(); }) {
    if (!connect()) reconnect_.begin();
    announcedScreens_ = screens();
    announcedLimitation_ = limitation();
  }
  ~DesktopOverlayBackend() override { disconnect(); }

  [[nodiscard]] std::vector<Screen> screens() const final {
    return desktop_ ? desktop_->screens() : std::vector<Screen>();
  }
  [[nodiscard]] std::string limitation() const final {
    return desktop_ ? desktop_->limitation() : "error_no_overlay";
  }

 protected:
  /// What every surface of this back end belongs to.
  [[nodiscard]] const std::shared_ptr<List>& list() const { return list_; }

 private:
  using Desktop = typename List::Desktop;

  bool connect() {
    desktop_ = Desktop::open(display_, loop_,
                             {.changed = [this] { desktopChanged(); }, .lost = [this] { desktopLost(); }});
    list_->desktop = desktop_.get();
    return desktop_ != nullptr;
  }
  bool retry() {
    if (!connect()) return false;
    desktopChanged();
    return true;
  }
  void disconnect() {
    for (DesktopSurface* surface : list_->surfaces) surface->release();
    list_->desktop = nullptr;
    desktop_.reset();
  }
  void desktopLost() {
    // One that never could be used is asked ever more rarely.
    const bool was = desktop_ && desktop_->isUsable();
    disconnect();
    was ? reconnect_.begin() : reconnect_.goOn();
    announce();
  }
  void desktopChanged() {
    for (DesktopSurface* surface : list_->surfaces) surface->refresh();
    announce();
  }
  void announce() {
    if (auto limit = limitation(); limit != announcedLimitation_) {
      announcedLimitation_ = std::move(limit);
      limitationChanged.emit();
    }
    if (auto now = screens(); now != announcedScreens_) {
      announcedScreens_ = std::move(now);
      screensChanged.emit();
    }
  }

  MainLoop& loop_;
  std::string display_;
  std::shared_ptr<List> list_ = std::make_shared<List>();
  std::unique_ptr<Desktop> desktop_;
  Reconnect reconnect_;
  // What was last announced.
  std::vector<Screen> announcedScreens_;
  std::string announcedLimitation_;
};

}  // namespace sentrel
