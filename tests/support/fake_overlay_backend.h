// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/overlay_surface.h"

namespace sentrel::test {

/// Screens that a test plugs and unplugs, and what each of them shows.
class FakeOverlayBackend final : public OverlayBackend {
 public:
  struct Shown {
    std::vector<OverlayScene> scenes;
    std::vector<TintLevel> tints;
  };

  struct Retro {
    std::shared_ptr<const GreyPicture> picture;
    std::vector<BlinkLevel> blinks;
  };

  std::vector<Screen> screenList{{1, "one", {0, 0, 1920, 1080}, true}};
  /// By the screen's id; an entry is there exactly while its surface is.
  std::map<std::uint64_t, Shown> shown;
  int created = 0;
  std::optional<Retro> retro;  ///< there exactly while its surface is
  int retrosCreated = 0;

  [[nodiscard]] std::vector<Screen> screens() const override { return screenList; }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override {
    ++created;
    shown[screen.id] = {};
    return std::make_unique<Surface>(shown, screen.id);
  }
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override {
    ++retrosCreated;
    retro.emplace();
    return std::make_unique<RetroRecorder>(retro);
  }
  [[nodiscard]] std::string limitation() const override { return {}; }

  void setScreens(std::vector<Screen> next) {
    screenList = std::move(next);
    screensChanged.emit();
  }

 private:
  class RetroRecorder final : public RetroSurface {
   public:
    explicit RetroRecorder(std::optional<Retro>& retro) : retro_(retro) {}
    RetroRecorder(const RetroRecorder&) = delete;
    RetroRecorder& operator=(const RetroRecorder&) = delete;
    ~RetroRecorder() override { retro_.reset(); }
    void present(std::shared_ptr<const GreyPicture> picture) override {
      retro_->picture = std::move(picture);
    }
    void setBlink(BlinkLevel level) override { retro_->blinks.push_back(level); }

   private:
    std::optional<Retro>& retro_;
  };

  class Surface final : public OverlaySurface {
   public:
    Surface(std::map<std::uint64_t, Shown>& shown, std::uint64_t id) : shown_(shown), id_(id) {}
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
    ~Surface() override { shown_.erase(id_); }
    void present(const OverlayScene& scene) override { shown_[id_].scenes.push_back(scene); }
    void setTint(TintLevel level) override { shown_[id_].tints.push_back(level); }

   private:
    std::map<std::uint64_t, Shown>& shown_;
    std::uint64_t id_;
  };
};

}  // namespace sentrel::test
