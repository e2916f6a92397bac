// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_surface.h"

#include <algorithm>
#include <utility>

namespace sentrel {

WaylandOverlaySurface::~WaylandOverlaySurface() {
  release();
}

void WaylandOverlaySurface::present(const OverlayScene& scene) {
  scene_ = scene;
  if (layers_) {
    // Also where the compositor has not told their size yet: they show it once it has.
    layers_->show(scene, tint_);
  } else {
    refresh();
  }
}

void WaylandOverlaySurface::setTint(TintLevel level) {
  if (std::exchange(tint_, level) != level && layers_) layers_->setTint(level);
}

void WaylandOverlaySurface::setPicture(const std::optional<RetroPicture>& picture) {
  picture_ = picture;
  if (layers_) layers_->setPicture(picture);
}

void WaylandOverlaySurface::refresh() {
  const auto output = desktop() == nullptr ? nullptr : desktop()->output(screenId());
  if (output == nullptr || !scene_) return release();
  // Another global of the same name is the same screen, plugged in anew.
  if (layers_ && layers_->output().globalName() != output->globalName()) release();
  if (layers_) return layers_->paint();
  if (retry_) return;
  layers_ = std::make_unique<WaylandLayers>(*desktop(), output, [this] { closed(); });
  layers_->setPicture(picture_);
  layers_->show(*scene_, tint_);
  desktop()->flush();
}

void WaylandOverlaySurface::release() {
  retry_.reset();
  layers_.reset();
}

void WaylandOverlaySurface::closed() {
  if (layers_->isShown()) retryMs_ = firstRetryMs;
  layers_.reset();
  retry_ = desktop()->loop().after(retryMs_, [this] {
    retry_.reset();
    refresh();
  });
  retryMs_ = std::min(2 * retryMs_, longestRetryMs);
}

}  // namespace sentrel
