// SPDX-License-Identifier: Apache-2.0
#include "overlay/flash_animation.h"

#include "overlay/easing.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::int64_t riseMs = 400;
constexpr std::int64_t flashMs = 2 * riseMs;
constexpr std::int64_t stopMs = 300;

double part(std::int64_t elapsedMs, std::int64_t durationMs) {
  return static_cast<double>(elapsedMs) / static_cast<double>(durationMs);
}

}  // namespace

void FlashAnimation::start(std::int64_t nowMs, Motion motion) {
  change(true, nowMs);
  motion_ = motion;
}

void FlashAnimation::stop(std::int64_t nowMs) {
  change(false, nowMs);
}

void FlashAnimation::change(bool flashing, std::int64_t nowMs) {
  fromAlpha_ = alphaAt(nowMs);
  flashing_ = flashing;
  sinceMs_ = nowMs;
}

bool FlashAnimation::isSettledAt(std::int64_t nowMs) const {
  const std::int64_t elapsed = checkedSubtract(nowMs, sinceMs_);
  return flashing_ ? motion_ == Motion::reduced && elapsed >= riseMs : elapsed >= stopMs;
}

double FlashAnimation::alphaAt(std::int64_t nowMs) const {
  const std::int64_t elapsed = checkedSubtract(nowMs, sinceMs_);
  if (!flashing_) return fromAlpha_ * (1 - easeOut(part(elapsed, stopMs)));
  if (motion_ == Motion::reduced) {
    return fromAlpha_ + (peakAlpha / 2 - fromAlpha_) * easeInOut(part(elapsed, riseMs));
  }
  const std::int64_t phase = elapsed % flashMs;
  if (phase >= riseMs) return peakAlpha * (1 - easeInOut(part(phase - riseMs, riseMs)));
  const double from = elapsed < flashMs ? fromAlpha_ : 0;
  return from + (peakAlpha - from) * easeInOut(part(phase, riseMs));
}

}  // namespace sentrel
