// SPDX-License-Identifier: Apache-2.0
#include "service/covered_screens.h"

#include <algorithm>
#include <utility>

namespace sentrel {

CoveredScreens::CoveredScreens(std::shared_ptr<OverlayBackend> backend) : backend_(std::move(backend)) {
  screensRegistration_ = backend_->screensChanged.connect([this] { screensChanged.emit(); });
  limitationRegistration_ = backend_->limitationChanged.connect([this] { limitationChanged.emit(); });
}

void CoveredScreens::follow(std::shared_ptr<SettingsRepository> settingsRepo) {
  settingsRepo_ = std::move(settingsRepo);
  settingsRegistration_ = settingsRepo_->settings.subscribe([this](const FilterSettings& settings) {
    if (std::exchange(coverAll_, settings.coverAllScreens) != settings.coverAllScreens) screensChanged.emit();
  });
}

std::vector<Screen> CoveredScreens::screens() const {
  auto all = backend_->screens();
  if (coverAll_ || all.size() <= 1) return all;
  const auto main = std::ranges::find(all, true, &Screen::isMain);
  return {main == all.end() ? all.front() : *main};
}

std::unique_ptr<OverlaySurface> CoveredScreens::createSurface(const Screen& screen) {
  return backend_->createSurface(screen);
}

std::unique_ptr<RetroSurface> CoveredScreens::createRetroSurface() {
  return backend_->createRetroSurface();
}

std::string CoveredScreens::limitation() const {
  return backend_->limitation();
}

}  // namespace sentrel
