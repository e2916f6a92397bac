// SPDX-License-Identifier: Apache-2.0
#include "overlay/retro_pip_manager.h"

#include <algorithm>
#include <utility>

#include "overlay/retro_crop.h"
#include "platform/platform.h"

namespace sentrel {

RetroPiPManager::RetroPiPManager(std::shared_ptr<OverlayBackend> backend, std::shared_ptr<MainLoop> mainLoop,
                                 std::shared_ptr<Clock> clock)
    : backend_(std::move(backend)), mainLoop_(std::move(mainLoop)), clock_(std::move(clock)) {
  for (auto& picture : pictures_) picture = std::make_shared<GreyPicture>();
}

RetroPiPManager::~RetroPiPManager() = default;

const std::shared_ptr<RetroPiPManager>& RetroPiPManager::shared() {
  static const auto instance = std::make_shared<RetroPiPManager>(
      Platform::current().overlayBackend, Platform::current().mainLoop, Platform::current().clock);
  return instance;
}

void RetroPiPManager::openWindow() {
  window.emplace(state, reducedMotion, backend_->createRetroSurface(), *mainLoop_, *clock_);
}

void RetroPiPManager::renderFrame(const FrameRef& pixelBuffer,
                                  const std::optional<NormalizedRect>& faceRect) {
  if (!pixelBuffer || pixelBuffer->empty()) return;
  auto picture = freePicture();
  copyGrey(*pixelBuffer, retroCrop(pixelBuffer->width(), pixelBuffer->height(), faceRect), *picture);
  state.frame = std::shared_ptr<const GreyPicture>(std::move(picture));
}

void RetroPiPManager::hide() {
  window.reset();
  if (!state.frame.get()) return;
  state.frame = nullptr;
  for (const auto& picture : pictures_) picture->levels.wipe();
}

/// One that nobody shows: what is shown must not change.
std::shared_ptr<GreyPicture> RetroPiPManager::freePicture() {
  const auto free =
      std::ranges::find_if(pictures_, [](const auto& picture) { return picture.use_count() == 1; });
  if (free != pictures_.end()) return *free;
  return std::make_shared<GreyPicture>();
}

}  // namespace sentrel
