// SPDX-License-Identifier: Apache-2.0
#include "overlay/overlay_content_view.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "overlay/overlay_window_manager.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::int64_t riseMs = 400;
constexpr std::int64_t flashMs = 2 * riseMs;
constexpr std::int64_t stopMs = 300;

/// A coordinate of the curve at its parameter `s`, with the control points' coordinates `a` and `b`.
double bezier(double s, double a, double b) {
  const double r = 1 - s;
  return 3 * r * r * s * a + 3 * r * s * s * b + s * s * s;
}

/// The curve's height where its width is `t`. The width grows with the parameter, so halving finds it; 30
/// halvings are finer than a thousandth of a tint step.
double ease(double t, double x1, double y1, double x2, double y2) {
  t = std::clamp(t, 0.0, 1.0);
  double low = 0;
  double high = 1;
  for (int i = 0; i < 30; ++i) {
    const double middle = (low + high) / 2;
    (bezier(middle, x1, x2) < t ? low : high) = middle;
  }
  return bezier(high, y1, y2);
}

double share(std::int64_t elapsedMs, std::int64_t durationMs) {
  return static_cast<double>(elapsedMs) / static_cast<double>(durationMs);
}

constexpr double veilAlpha = 0.7;
constexpr double tintAlpha = 0.35;  // of the red layer at a flash level of 1
// About 30 a second: the 27 levels leave no room for more.
constexpr std::int64_t flashStepMs = 33;

double opacity(double value) {
  return value > 0 ? std::min(value, 1.0) : 0;  // also for what is not a number
}

}  // namespace

double easeInOut(double t) {
  return ease(t, 0.42, 0, 0.58, 1);
}

void FlashAnimation::change(Mode mode, std::int64_t nowMs) {
  fromAlpha_ = alphaAt(nowMs);
  mode_ = mode;
  sinceMs_ = nowMs;
}

bool FlashAnimation::isSettledAt(std::int64_t nowMs) const {
  return mode_ != Mode::flashing &&
         checkedSubtract(nowMs, sinceMs_) >= (mode_ == Mode::raised ? riseMs : stopMs);
}

double FlashAnimation::alphaAt(std::int64_t nowMs) const {
  const std::int64_t elapsed = checkedSubtract(nowMs, sinceMs_);
  if (mode_ == Mode::stopped) return fromAlpha_ * (1 - ease(share(elapsed, stopMs), 0, 0, 0.58, 1));
  if (mode_ == Mode::raised) {
    return fromAlpha_ + (peakAlpha / 2 - fromAlpha_) * easeInOut(share(elapsed, riseMs));
  }
  const std::int64_t phase = elapsed % flashMs;
  if (phase >= riseMs) return peakAlpha * (1 - easeInOut(share(phase - riseMs, riseMs)));
  const double from = elapsed < flashMs ? fromAlpha_ : 0;
  return from + (peakAlpha - from) * easeInOut(share(phase, riseMs));
}

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
                                       std::unique_ptr<OverlaySurface> surface, MainLoop& mainLoop,
                                       const Clock& clock)
    : manager(owner),
      surface_(std::move(surface)),
      mainLoop_(mainLoop),
      clock_(clock),
      alertMode_(owner.isAlertMode) {
  const auto redraw = [this](const auto&) { schedulePresent(); };
  observations_ = {
      manager.isShowing().onChange(redraw),
      manager.currentAlpha.onChange(redraw),
      manager.matrixEnabled.onChange(redraw),
      manager.matrixDistanceCm.onChange(redraw),
      manager.matrixColorArgb.onChange(redraw),
      manager.matrixStripeAlpha.onChange(redraw),
      manager.shortcutKeys.onChange(redraw),
      manager.reducedMotion.onChange([this](bool) {
        if (!flash_.isStopped()) changeFlash();
      }),
      manager.isAlertMode.onChange([this](bool alertMode) { alertModeChanged(alertMode); }),
      manager.picture.onChange([this](const auto&) {
        if (onMainScreen_ && !manager.isCovered()) updatePicture();
      }),
      manager.coverLook.onChange(redraw),
      manager.isCovered().onChange([this](bool) {
        updateTint();
        updatePicture();
        schedulePresent();
      }),
  };
  // The surface, which may go with this, is in the midst of telling it.
  clicked_ = surface_->clicked.connect([this] {
    mainLoop_.post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->manager.revealAsked.emit();
    });
  });
}

void OverlayContentView::setOnMainScreen(bool onMain) {
  if (std::exchange(onMainScreen_, onMain) == onMain) return;
  updatePicture();
}

void OverlayContentView::updatePicture() {
  surface_->setPicture(onMainScreen_ && !manager.isCovered() ? manager.picture.get() : std::nullopt);
}

// A view made during an alert does not flash: only a change makes it.
void OverlayContentView::alertModeChanged(bool alertMode) {
  if (alertMode == alertMode_) return;
  alertMode_ = alertMode;
  changeFlash();
  schedulePresent();
}

void OverlayContentView::changeFlash() {
  using enum FlashAnimation::Mode;
  flash_.change(!alertMode_ ? stopped : manager.reducedMotion ? raised : flashing, clock_.nowMs());
  flashTask.reset();
  if (alertMode_) flashTask = mainLoop_.every(flashStepMs, [this] { updateTint(); });
  updateTint();
}

/// The red layer belongs to the alert and goes with it; its level moves on, unseen, to where the next flash
/// begins.
void OverlayContentView::updateTint() {
  if (flash_.isSettledAt(clock_.nowMs())) flashTask.reset();
  const double level = alertMode_ && !manager.isCovered() ? std::round(flashAlpha() * tintAlpha * 255) : 0;
  const TintLevel next = std::min(static_cast<TintLevel>(level), strongestTint);
  if (next == tint_) return;
  tint_ = next;
  surface_->setTint(next);
}

/// A change of state assigns in two turns: the opacity at once and the alert in the next. Both are one
/// repaint: it waits for the turn after that, which is the same moment to the eye.
void OverlayContentView::schedulePresent() {
  if (std::exchange(presentScheduled_, true)) return;
  mainLoop_.post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->mainLoop_.post([weak] {
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
  if (manager.isCovered()) {
    result.cover = manager.coverLook;
    return result;
  }
  if (manager.isShowing() && manager.matrixEnabled && manager.currentAlpha > 0.0F) {
    result.stripes = MatrixStripeLayer{manager.matrixDistanceCm, manager.matrixColorArgb,
                                       manager.matrixStripeAlpha, manager.currentAlpha}
                         .pattern();
  }
  if (manager.isAlertMode) {
    result.veilAlpha = veilAlpha;
    result.banner = true;
  }
  result.shortcutInHint = manager.shortcutKeys;
  return result;
}

}  // namespace sentrel
