// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>

#include "platform/overlay_surface.h"
#include "settings/settings_repository.h"
#include "support/registration.h"

namespace sentrel {

/// The screens that the person wants covered: all of them, or the main one only. Main thread.
class CoveredScreens final : public OverlayBackend {
 public:
  /// Covers all screens until it follows the settings.
  explicit CoveredScreens(std::shared_ptr<OverlayBackend> backend);

  /// To be called once, before anything is covered.
  void follow(std::shared_ptr<SettingsRepository> settingsRepo);

  [[nodiscard]] std::vector<Screen> screens() const override;
  [[nodiscard]] std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) override;
  [[nodiscard]] std::unique_ptr<RetroSurface> createRetroSurface() override;
  [[nodiscard]] std::string limitation() const override;

 private:
  std::shared_ptr<OverlayBackend> backend_;
  std::shared_ptr<SettingsRepository> settingsRepo_;
  bool coverAll_ = true;
  Registration settingsRegistration_;
  Registration screensRegistration_;
  Registration limitationRegistration_;
};

}  // namespace sentrel
