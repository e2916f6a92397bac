// SPDX-License-Identifier: Apache-2.0
#include "overlay/overlay_content_view.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "overlay/overlay_window_manager.h"

namespace sentrel {

namespace {

constexpr double veilAlpha = 0.7;
constexpr double tintAlpha = 0.35;  // of the red layer at a flash level of 1
// About 30 a second: the 27 levels leave no room for more.
constexpr std::int64_t flashStepMs = 33;

double opacity(double value) {
  return value > 0 ? std::min(value, 1.0) : 0;  // also for what is not a number
}

}  // namespace

StripePattern MatrixStripeLayer::pattern() const {
  constexpr double periodAtReference = 8;
  constexpr double referenceCm = 60;
  constexpr double nearestCm = 30;
  constexpr std::uint64_t rgbMask = 0xFFFFFF;
  const double distance = std::max(static_cast<double>(distanceCm), nearestCm);
  return {
      .period = periodAtReference * std::sqrt(distance / referenceCm),
      .rgb = static_cast<std::uint32_t>(colorArgb & rgbMask),
      .stripeAlpha = opacity(stripeAlpha),
      .layerAlpha = opacity(overlayAlpha),
  };
}

OverlayContentView::OverlayContentView(const OverlayWindowManager& owner,
                                       std::unique_ptr<OverlaySurface> surface,
                                       std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock)
    : manager(owner),
      surface_(std::move(surface)),
      mainLoop_(std::move(mainLoop)),
      clock_(std::move(clock)),
      alertMode_(owner.isAlertMode) {
  observeManager();
}

void OverlayContentView::observeManager() {
  const auto redraw = [this](const auto&) { schedulePresent(); };
  observations_ = {
      manager.isShowing().onChange(redraw),
      manager.currentAlpha.onChange(redraw),
      manager.matrixEnabled.onChange(redraw),
      manager.matrixDistanceCm.onChange(redraw),
      manager.matrixColorArgb.onChange(redraw),
      manager.matrixStripeAlpha.onChange(redraw),
      manager.shortcutAvailable.onChange(redraw),
      manager.reducedMotion.onChange([this](bool) {
        if (flash_.isFlashing()) startFlash();
      }),
      manager.isAlertMode.onChange([this](bool alertMode) { alertModeChanged(alertMode); }),
      manager.picture.onChange([this](const std::optional<RetroPicture>& picture) {
        if (onMainScreen_) surface_->setPicture(picture);
      }),
  };
}

void OverlayContentView::setOnMainScreen(bool onMain) {
  if (std::exchange(onMainScreen_, onMain) == onMain) return;
  surface_->setPicture(onMain ? manager.picture.get() : std::nullopt);
}

// A view made during an alert does not flash: only a change makes it.
void OverlayContentView::alertModeChanged(bool alertMode) {
  if (alertMode == alertMode_) return;
  alertMode_ = alertMode;
  alertMode ? startFlash() : stopFlash();
  schedulePresent();
}

void OverlayContentView::startFlash() {
  flash_.start(clock_->nowMs(),
               manager.reducedMotion ? FlashAnimation::Motion::reduced : FlashAnimation::Motion::full);
  flashTask = mainLoop_->every(flashStepMs, [this] { updateTint(); });
  updateTint();
}

void OverlayContentView::stopFlash() {
  flashTask.reset();
  flash_.stop(clock_->nowMs());
  updateTint();
}

/// The red layer belongs to the alert and goes with it; its level moves on, unseen, to where the next flash
/// begins.
void OverlayContentView::updateTint() {
  if (flash_.isSettledAt(clock_->nowMs())) flashTask.reset();
  const double level = alertMode_ ? std::round(flashAlpha() * tintAlpha * 255) : 0;
  const TintLevel next = std::min(static_cast<TintLevel>(level), strongestTint);
  if (next == tint_) return;
  tint_ = next;
  surface_->setTint(next);
}

/// A change of state assigns in two turns: the opacity at once and the alert in the next. Both are one
/// repaint: it waits for the turn after that, which is the same moment to the eye.
void OverlayContentView::schedulePresent() {
  if (std::exchange(presentScheduled_, true)) return;
  mainLoop_->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->mainLoop_->post([weak] {
      if (const auto view = weak.lock()) view->present();
    });
  });
}

void OverlayContentView::present() {
  presentScheduled_ = false;
  OverlayScene next = scene();
  if (presented_ == next) return;
  surface_->present(next);
  presented_ = next;
}

OverlayScene OverlayContentView::scene() const {
  OverlayScene result;
  if (manager.isShowing() && manager.matrixEnabled && manager.currentAlpha > 0.0F) {
    result.stripes = MatrixStripeLayer{manager.matrixDistanceCm, manager.matrixColorArgb,
                                       manager.matrixStripeAlpha, manager.currentAlpha}
                         .pattern();
  }
  if (manager.isAlertMode) {
    result.veilAlpha = veilAlpha;
    result.banner = true;
  }
  result.shortcutInHint = manager.shortcutAvailable;
  return result;
}

}  // namespace sentrel
