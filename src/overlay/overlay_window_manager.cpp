// SPDX-License-Identifier: Apache-2.0
#include "overlay/overlay_window_manager.h"

#include <algorithm>
#include <utility>

#include "overlay/overlay_content_view.h"
#include "platform/platform.h"

namespace sentrel {

OverlayWindowManager::OverlayWindowManager(std::shared_ptr<OverlayBackend> backend,
                                           std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock)
    : backend_(std::move(backend)), mainLoop_(std::move(mainLoop)), clock_(std::move(clock)) {}

OverlayWindowManager::~OverlayWindowManager() = default;

const std::shared_ptr<OverlayWindowManager>& OverlayWindowManager::shared() {
  static const auto instance = std::make_shared<OverlayWindowManager>(
      Platform::current().overlayBackend, Platform::current().mainLoop, Platform::current().clock);
  return instance;
}

void OverlayWindowManager::show() {
  if (isShowing_) return;
  isShowing_ = true;
  updateWindows();
}

void OverlayWindowManager::hide() {
  isShowing_.assignIfChanged(false);
  updateWindows();
}

void OverlayWindowManager::hideScreens() {
  isCovered_.assignIfChanged(true);
  updateWindows();
}

void OverlayWindowManager::revealScreens() {
  isCovered_.assignIfChanged(false);
  updateWindows();
}

std::vector<Screen> OverlayWindowManager::wantedScreens() const {
  if (!isShowing_ && !isCovered_) return {};
  auto all = backend_->screens();
  if (isCovered_ || coverAllScreens || all.empty()) return all;
  const auto main = std::ranges::find(all, true, &Screen::isMain);
  return {main == all.end() ? all.front() : *main};
}

void OverlayWindowManager::updateWindows() {
  if (!isShowing_ && !isCovered_) {
    screensRegistration_.reset();
    coverRegistration_.reset();
  } else if (!screensRegistration_) {
    screensRegistration_ = backend_->screensChanged.connect([this] { updateWindows(); });
    coverRegistration_ = coverAllScreens.onChange([this](bool) { updateWindows(); });
  }
  const auto current = wantedScreens();
  std::erase_if(overlayWindows, [&current](const auto& window) {
    return std::ranges::find(current, window.first, &Screen::id) == current.end();
  });
  // The window of a screen that stays is kept: its surface follows the screen by itself.
  for (const Screen& screen : current) {
    auto& view = overlayWindows[screen.id];
    if (!view) {
      view =
          std::make_shared<OverlayContentView>(*this, backend_->createSurface(screen), *mainLoop_, *clock_);
      view->schedulePresent();
    }
    view->setOnMainScreen(screen.isMain);
  }
}

}  // namespace sentrel
