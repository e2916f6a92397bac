// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_surface.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {
// A compositor that closes a surface while its output stays may be asked again, but never in a circle.
constexpr std::int64_t firstRetryMs = 250;
constexpr std::int64_t longestRetryMs = 8'000;
}  // namespace

WaylandOverlaySurface::WaylandOverlaySurface(std::shared_ptr<WaylandSurfaceList> list, std::uint64_t screenId)
    : list_(std::move(list)), screenId_(screenId), retryMs_(firstRetryMs) {
  list_->surfaces.push_back(this);
  picture_ = list_->picture.onChange([this](const auto&) { bearPicture(); });
}

WaylandOverlaySurface::~WaylandOverlaySurface() {
  std::erase(list_->surfaces, this);
  release();
  if (list_->desktop != nullptr) list_->desktop->flush();
}

void WaylandOverlaySurface::present(const OverlayScene& scene) {
  scene_ = scene;
  if (windows_) {
    // Also where the compositor has not told their size yet: they show it once it has.
    windows_->show(scene, tint_);
  } else {
    refresh();
  }
}

void WaylandOverlaySurface::setTint(TintLevel level) {
  if (level == tint_) return;
  tint_ = level;
  if (windows_) windows_->setTint(level);
}

void WaylandOverlaySurface::refresh() {
  const auto output = list_->desktop == nullptr ? nullptr : list_->desktop->output(screenId_);
  if (output == nullptr || !scene_) {
    release();
    return;
  }
  // Another global of the same name is the same screen, plugged in anew.
  if (windows_ && outputGlobal_ != output->globalName()) release();
  if (windows_) {
    windows_->refresh();
    bearPicture();
    return;
  }
  if (retry_) return;
  outputGlobal_ = output->globalName();
  windows_ = std::make_unique<WaylandLayerWindows>(*list_->desktop, output, [this] { closed(); });
  windows_->show(*scene_, tint_);
  bearPicture();
  list_->desktop->flush();
}

void WaylandOverlaySurface::release() {
  retry_.reset();
  windows_.reset();
}

void WaylandOverlaySurface::bearPicture() {
  if (!windows_) return;
  const auto screens = list_->desktop->screens();
  const bool onMain = std::ranges::any_of(
      screens, [this](const Screen& screen) { return screen.isMain && screen.id == screenId_; });
  windows_->bearPicture(onMain ? list_->picture.get() : nullptr);
}

void WaylandOverlaySurface::closed() {
  if (windows_->isShown()) retryMs_ = firstRetryMs;
  windows_.reset();
  retry_ = list_->desktop->loop().after(retryMs_, [this] {
    retry_.reset();
    refresh();
  });
  retryMs_ = std::min(2 * retryMs_, longestRetryMs);
}

}  // namespace sentrel
