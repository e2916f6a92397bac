// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// The number of a screen of this name: the same in every process and after every replugging (FNV-1a).
[[nodiscard]] constexpr std::uint64_t screenIdOf(std::string_view name) {
  std::uint64_t hash = 0xCBF29CE484222325ULL;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
  return hash;
}

/// What a desktop tells its back end.
struct DesktopHandlers {
  std::function<void()> changed;  ///< its screens, or what it cannot do
  /// The connection broke, or cannot be used after all; called in a turn of its own.
  std::function<void()> lost;
};

/// What one screen shows.
struct SurfaceContent {
  std::optional<OverlayScene> scene;  ///< none before the first one came
  TintLevel tint = 0;
  std::optional<RetroPicture> picture;
};

/// Keeps the content of one screen, because its desktop may go and come back. A `Desktop` is one display
/// server as long as its connection lives. Main thread.
template <class Desktop>
class DesktopSurface : public OverlaySurface {
 public:
  /// The surfaces that exist and the desktop that they are on; null while there is no server.
  struct List {
    Desktop* desktop = nullptr;
    bool held = false;
    std::vector<DesktopSurface*> surfaces;
  };

  DesktopSurface(std::shared_ptr<List> list, std::uint64_t screenId)
      : list_(std::move(list)), screenId_(screenId) {
    list_->surfaces.push_back(this);
  }
  DesktopSurface(const DesktopSurface&) = delete;
  DesktopSurface& operator=(const DesktopSurface&) = delete;
  ~DesktopSurface() override {
    std::erase(list_->surfaces, this);
    flush();
  }

  void present(const OverlayScene& scene) final {
    content_.scene = scene;
    update();
  }
  void setTint(TintLevel level) final {
    if (std::exchange(content_.tint, level) == level) return;
    heldTint_ = list_->held;
    if (heldTint_) return;
    tintChanged();
    flush();
  }
  void setPicture(const std::optional<RetroPicture>& picture) final {
    const auto former = std::exchange(content_.picture, picture);
    if (list_->held) {
      if (!heldPicture_) heldPicture_ = former;
      return;
    }
    pictureChanged(former);
    flush();
  }

  /// Shows the content on the desktop as it is now, unless it is held.
  void update() {
    if (list_->held) return;
    if (const auto former = std::exchange(heldPicture_, std::nullopt)) pictureChanged(*former);
    refresh();
    if (std::exchange(heldTint_, false)) tintChanged();
    flush();
  }
  /// The desktop is going: lets go of everything on it.
  virtual void release() = 0;

 protected:
  virtual void refresh() = 0;
  // Only these have changed.
  virtual void tintChanged() = 0;
  virtual void pictureChanged(const std::optional<RetroPicture>& former) = 0;

  [[nodiscard]] Desktop* desktop() const { return list_->desktop; }
  [[nodiscard]] std::uint64_t screenId() const { return screenId_; }
  [[nodiscard]] const SurfaceContent& content() const { return content_; }

 private:
  void flush() const {
    if (desktop() != nullptr) desktop()->flush();
  }

  const std::shared_ptr<List> list_;
  const std::uint64_t screenId_;
  SurfaceContent content_;
  // What has changed since this is held.
  bool heldTint_ = false;
  std::optional<std::optional<RetroPicture>> heldPicture_;  // what is shown in place of the content's
};

/// The overlay on a desktop, over a connection of its own.
///
/// When the server goes, its screens go; the back end then tries to reach it again, ever more rarely, and
/// brings the screens back: a server that restarts is back within seconds, one that does not is looked for
/// twice a minute. Neither ends the process. Needs a Qt event loop on the main thread and, to paint, a
/// QGuiApplication of any platform.
///
/// `Surface` is the desktop's DesktopSurface. The desktop has `systemName`, `open(display, loop, handlers)`,
/// null where the server cannot be used, `isUsable()`, `flush()`, `screens()`, and `limitation()` and
/// `setHeld()` as those of OverlayBackend.
template <class Desktop, class Surface>
class DesktopOverlayBackend final : public OverlayBackend {
 public:
  /// Succeeds also when the server is not there yet.
  DesktopOverlayBackend(MainLoop& loop, std::string display) : loop_(loop), display_(std::move(display)) {
    if (!connect()) retryAfter(firstDelayMs);
    announcedScreens_ = screens();
    announcedLimitation_ = limitation();
  }
  DesktopOverlayBackend(const DesktopOverlayBackend&) = delete;
  DesktopOverlayBackend& operator=(const DesktopOverlayBackend&) = delete;
  ~DesktopOverlayBackend() override { disconnect(); }

  [[nodiscard]] std::string system() const override { return Desktop::systemName; }
  [[nodiscard]] std::vector<Screen> screens() const override {
    return desktop_ ? desktop_->screens() : std::vector<Screen>();
  }
  [[nodiscard]] std::string limitation() const override {
    return desktop_ ? desktop_->limitation() : "error_no_overlay";
  }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override {
    return std::make_unique<Surface>(list_, screen.id);
  }
  void setHeld(bool held) override {
    if (std::exchange(list_->held, held) == held) return;
    if (desktop_) desktop_->setHeld(held);
    if (held) return;
    for (auto* surface : list_->surfaces) surface->update();
  }

 private:
  static constexpr std::int64_t firstDelayMs = 500;
  static constexpr std::int64_t longestDelayMs = 30'000;

  bool connect() {
    desktop_ = Desktop::open(display_, loop_,
                             {.changed = [this] { desktopChanged(); }, .lost = [this] { desktopLost(); }});
    list_->desktop = desktop_.get();
    if (desktop_) desktop_->setHeld(list_->held);
    return desktop_ != nullptr;
  }
  void retryAfter(std::int64_t delayMs) {
    nextDelayMs_ = std::min(2 * delayMs, longestDelayMs);
    retry_ = loop_.after(delayMs, [this] { connect() ? desktopChanged() : retryAfter(nextDelayMs_); });
  }
  void disconnect() {
    for (auto* surface : list_->surfaces) surface->release();
    list_->desktop = nullptr;
    desktop_.reset();
  }
  void desktopLost() {
    // One that never could be used is asked ever more rarely.
    const bool was = desktop_ && desktop_->isUsable();
    disconnect();
    retryAfter(was ? firstDelayMs : nextDelayMs_);
    announce();
  }
  void desktopChanged() {
    for (auto* surface : list_->surfaces) surface->update();
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
  const std::string display_;
  const std::shared_ptr<typename DesktopSurface<Desktop>::List> list_ =
      std::make_shared<typename DesktopSurface<Desktop>::List>();
  std::unique_ptr<Desktop> desktop_;
  std::int64_t nextDelayMs_ = firstDelayMs;
  Registration retry_;
  std::vector<Screen> announcedScreens_;
  std::string announcedLimitation_;
};

/// The back end for the desktop that this process lives on: the layer shell where WAYLAND_DISPLAY leads to a
/// compositor that has one, else X11 where DISPLAY is set, which also covers Wayland windows through the
/// compositor's own X server, else none. `loop` must outlive it. Main thread, after the QGuiApplication.
[[nodiscard]] std::unique_ptr<OverlayBackend> createOverlayBackend(MainLoop& loop);

}  // namespace sentrel
