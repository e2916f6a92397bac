// SPDX-License-Identifier: Apache-2.0
#include "overlay/retro_pip_view.h"

#include <cmath>
#include <utility>

#include "overlay/easing.h"

namespace sentrel {

namespace {
constexpr std::int64_t fadeMs = 550;
constexpr std::int64_t blinkStepMs = 33;
}  // namespace

RetroPiPView::RetroPiPView(const RetroPiPState& state, const Published<bool>& reducedMotion,
                           std::unique_ptr<RetroSurface> surface, MainLoop& mainLoop, const Clock& clock)
    : surface_(std::move(surface)), mainLoop_(mainLoop), clock_(clock), shownSinceMs_(clock.nowMs()) {
  frame_ = state.frame.subscribe(
      [this](const std::shared_ptr<const GreyPicture>& picture) { surface_->present(picture); });
  motion_ = reducedMotion.subscribe([this](bool reduced) { startBlinking(reduced); });
}

/// Without motion the dot is simply there.
void RetroPiPView::startBlinking(bool reducedMotion) {
  blinkTask_.reset();
  if (reducedMotion) {
    blink = brightestBlink;
    surface_->setBlink(blink);
    return;
  }
  updateDot();
  blinkTask_ = mainLoop_.every(blinkStepMs, [this] { updateDot(); });
}

void RetroPiPView::updateDot() {
  const std::int64_t phase = (clock_.nowMs() - shownSinceMs_) % (2 * fadeMs);
  const std::int64_t distance = phase < fadeMs ? phase : 2 * fadeMs - phase;
  const double opacity = easeInOut(static_cast<double>(distance) / static_cast<double>(fadeMs));
  const auto next = static_cast<BlinkLevel>(std::lround(opacity * brightestBlink));
  if (std::exchange(blink, next) != next) surface_->setBlink(next);
}

}  // namespace sentrel
