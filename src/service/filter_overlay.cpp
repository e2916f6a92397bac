// SPDX-License-Identifier: Apache-2.0
#include "service/filter_overlay.h"

#include <algorithm>
#include <cstdlib>

#include "support/fatal.h"

namespace sentrel {

namespace {

// Even the strongest filter leaves the screen readable for its user.
constexpr float greatestOpacity = 0.8F;

// A face one tenth of the image wide is taken to be 100 cm away.
constexpr float widthTimesDistance = 10;
constexpr std::int64_t hysteresisCm = 11;

/// `value` kept within `low` and `high`; what is not a number counts as `low`.
template <class T>
T within(T low, T value, T high) {
  if (!(value > low)) return low;
  return value > high ? high : value;
}

}  // namespace

std::int64_t matrixDistanceFor(float boundingBoxRatio, float coefficient) {
  const float distance = within(20.0F, widthTimesDistance / boundingBoxRatio, 200.0F);
  const double scaled = static_cast<double>(distance) * static_cast<double>(coefficient);
  return static_cast<std::int64_t>(within(20.0, scaled, 300.0));
}

bool isNewMatrixDistance(std::int64_t cm, std::int64_t currentCm) {
  return std::abs(checkedSubtract(cm, currentCm)) >= hysteresisCm;
}

void FilterOverlay::show(const FilterState& state) {
  if (softening.hidesStripes && !darkens(state)) {
    uses_.overlayManager->hide();
    return;
  }
  if (!uses_.cameraControl->rest() && !uses_.overlayManager->isShowing()) uses_.overlayManager->show();
}

void FilterOverlay::showState(const FilterState& state) {
  using Kind = FilterState::Kind;
  const bool isAlert = darkens(state);
  if (!isAlert) uses_.overlayManager->isAlertMode.assignIfChanged(false);
  if (state.is(Kind::autoPaused) || state.is(Kind::inactive)) {
    uses_.overlayManager->hide();
  } else if (!state.is(Kind::cameraBusy)) {  // that leaves it as it is: its opacity is 0
    show(state);
  }
  if (isAlert) uses_.overlayManager->isAlertMode.assignIfChanged(true);
}

void FilterOverlay::applyOpacity(const FilterState& state) {
  const std::int64_t strength = uses_.settingsRepo->settings.get().filterStrength;
  const bool isAsBefore = state.is(FilterState::Kind::alert) && !darkens(state);
  const float alpha = filterAlpha(isAsBefore ? FilterState::nominal(strength) : state, strength);
  uses_.overlayManager->currentAlpha.assignIfChanged(std::min(alpha, greatestOpacity));
}

void FilterOverlay::applySettings(const FilterState& state) {
  applyOpacity(state);
  applyMatrix(uses_.overlayManager->lastDistanceCm);
  uses_.overlayManager->coverAllScreens.assignIfChanged(uses_.settingsRepo->settings.get().coverAllScreens);
}

void FilterOverlay::updateDistance(const FaceData& face) {
  if (!(face.boundingBoxRatio > 0)) return;
  const float coefficient = uses_.settingsRepo->settings.get().privacyMatrixCoefficient;
  const std::int64_t cm = matrixDistanceFor(face.boundingBoxRatio, coefficient);
  if (isNewMatrixDistance(cm, uses_.overlayManager->lastDistanceCm)) applyMatrix(cm);
}

void FilterOverlay::applyMatrix(std::int64_t distanceCm) {
  const FilterSettings settings = uses_.settingsRepo->settings;
  uses_.overlayManager->matrixEnabled = settings.privacyMatrixEnabled;
  uses_.overlayManager->matrixDistanceCm = distanceCm;
  uses_.overlayManager->matrixColorArgb = settings.matrixColorArgb;
  uses_.overlayManager->matrixStripeAlpha = settings.matrixStripeAlpha;
  uses_.overlayManager->lastDistanceCm = distanceCm;
}

}  // namespace sentrel
