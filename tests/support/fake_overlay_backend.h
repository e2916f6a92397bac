// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>

#include "platform/overlay_surface.h"

namespace sentrel::test {

/// Screens that a test plugs and unplugs, and what each of them shows.
class FakeOverlayBackend final : public OverlayBackend {
 public:
  struct Shown {
    std::vector<OverlayScene> scenes;
    std::vector<TintLevel> tints;
    std::optional<RetroPicture> picture;
  };

  std::vector<Screen> screenList{{1, "one", {0, 0, 1920, 1080}, true}};
  /// By the screen's id; an entry is there exactly while its surface is.
  std::map<std::uint64_t, Shown> shown;
  int created = 0;
  bool held = false;

  std::string cannot;  ///< its limitation

  [[nodiscard]] std::string system() const override { return "X11"; }
  [[nodiscard]] std::vector<Screen> screens() const override { return screenList; }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override {
    ++created;
    shown[screen.id] = {};
    auto surface = std::make_unique<Surface>(shown, screen.id);
    clicks[screen.id] = &surface->clicked;
    return surface;
  }
  [[nodiscard]] std::string limitation() const override { return cannot; }

  void setHeld(bool now) override { held = now; }

  /// On the cover's button.
  void click(std::uint64_t screen) { clicks.at(screen)->emit(); }

  void setScreens(std::vector<Screen> next) {
    screenList = std::move(next);
    screensChanged.emit();
  }

 private:
  std::map<std::uint64_t, Signal<>*> clicks;

  class Surface final : public OverlaySurface {
   public:
    Surface(std::map<std::uint64_t, Shown>& shown, std::uint64_t id) : shown_(shown), id_(id) {}
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
    ~Surface() override { shown_.erase(id_); }
    void present(const OverlayScene& scene) override { shown_[id_].scenes.push_back(scene); }
    void setTint(TintLevel level) override { shown_[id_].tints.push_back(level); }
    void setPicture(const std::optional<RetroPicture>& picture) override { shown_[id_].picture = picture; }

   private:
    std::map<std::uint64_t, Shown>& shown_;
    std::uint64_t id_;
  };
};

}  // namespace sentrel::test
