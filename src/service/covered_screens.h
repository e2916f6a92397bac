// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/overlay_surface.h"
#include "settings/settings_repository.h"
#include "support/registration.h"

namespace sentrel {

/// The screens that the person wants covered: all of them, or the main one only. Main thread.
class CoveredScreens final : public OverlayBackend {
 public:
  /// Covers all screens until it follows the settings.
  explicit CoveredScreens(std::shared_ptr<OverlayBackend> backend) : backend_(std::move(backend)) {
    screensRegistration_ = backend_->screensChanged.connect([this] { screensChanged.emit(); });
    limitationRegistration_ = backend_->limitationChanged.connect([this] { limitationChanged.emit(); });
  }

  /// To be called once, before anything is covered.
  void follow(std::shared_ptr<SettingsRepository> settingsRepo) {
    settingsRepo_ = std::move(settingsRepo);
    settingsRegistration_ = settingsRepo_->settings.subscribe([this](const FilterSettings& settings) {
      const bool before = std::exchange(coverAll_, settings.coverAllScreens);
      if (before != coverAll_) screensChanged.emit();
    });
  }

  [[nodiscard]] std::vector<Screen> screens() const override {
    auto all = backend_->screens();
    if (coverAll_ || all.size() <= 1) return all;
    const auto main = std::ranges::find(all, true, &Screen::isMain);
    return {main == all.end() ? all.front() : *main};
  }
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override {
    return backend_->createSurface(screen);
  }
  [[nodiscard]] std::string limitation() const override { return backend_->limitation(); }

 private:
  const std::shared_ptr<OverlayBackend> backend_;
  std::shared_ptr<SettingsRepository> settingsRepo_;
  bool coverAll_ = true;
  Registration settingsRegistration_;
  Registration screensRegistration_;
  Registration limitationRegistration_;
};

}  // namespace sentrel
