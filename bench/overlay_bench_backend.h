// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/overlay/wayland/wayland_overlay_surface.h"
#include "platform/overlay_surface.h"

namespace sentrel::bench {

/// A back end that counts what is presented on the real one and knows which of its surfaces are shown.
class OverlayBenchBackend final : public OverlayBackend {
 public:
  explicit OverlayBenchBackend(std::unique_ptr<OverlayBackend> real) : real_(std::move(real)) {
    screens_ = real_->screensChanged.connect([this] { screensChanged.emit(); });
    limitation_ = real_->limitationChanged.connect([this] { limitationChanged.emit(); });
  }

  /// How many scenes were painted and sent.
  [[nodiscard]] int presented() const { return counts_->presented; }
  /// How many surfaces have sent their first scene.
  [[nodiscard]] std::ptrdiff_t shownSurfaces() const {
    return std::ranges::count_if(counts_->surfaces,
                                 [](const Surface* surface) { return surface->isShown(); });
  }

  [[nodiscard]] std::string system() const override { return real_->system(); }
  [[nodiscard]] std::vector<Screen> screens() const override { return real_->screens(); }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override {
    return std::make_unique<Surface>(real_->createSurface(screen), counts_);
  }
  [[nodiscard]] std::string limitation() const override { return real_->limitation(); }
  void setHeld(bool held) override { real_->setHeld(held); }

 private:
  class Surface;
  struct Counts {
    int presented = 0;
    std::vector<Surface*> surfaces;
  };

  class Surface final : public OverlaySurface {
   public:
    Surface(std::unique_ptr<OverlaySurface> real, std::shared_ptr<Counts> counts)
        : real_(std::move(real)), counts_(std::move(counts)) {
      counts_->surfaces.push_back(this);
    }
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
    ~Surface() override { std::erase(counts_->surfaces, this); }
    void present(const OverlayScene& scene) override {
      real_->present(scene);
      presented_ = true;
      ++counts_->presented;
    }
    void setTint(TintLevel level) override { real_->setTint(level); }
    void setPicture(const std::optional<RetroPicture>& picture) override { real_->setPicture(picture); }
    [[nodiscard]] bool isShown() const {
      const auto* wayland = dynamic_cast<const WaylandOverlaySurface*>(real_.get());
      return wayland != nullptr ? wayland->isShown() : presented_;
    }

   private:
    std::unique_ptr<OverlaySurface> real_;
    std::shared_ptr<Counts> counts_;
    bool presented_ = false;
  };

  std::unique_ptr<OverlayBackend> real_;
  std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();
  Registration screens_;
  Registration limitation_;
};

}  // namespace sentrel::bench
