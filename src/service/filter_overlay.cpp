// SPDX-License-Identifier: Apache-2.0
#include "service/filter_overlay.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

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

FilterOverlay::FilterOverlay(std::shared_ptr<OverlayWindowManager> overlay,
                             std::shared_ptr<SettingsRepository> settings,
                             std::shared_ptr<CameraControl> cameraControl)
    : overlayManager(std::move(overlay)),
      settingsRepo(std::move(settings)),
      cameraControl_(std::move(cameraControl)) {}

void FilterOverlay::show() {
  if (!cameraControl_->rest() && !overlayManager->isShowing()) overlayManager->show();
}

void FilterOverlay::showState(const FilterState& state) {
  using Kind = FilterState::Kind;
  const bool isAlert = state.is(Kind::alert);
  if (!isAlert) overlayManager->isAlertMode.assignIfChanged(false);
  if (state.is(Kind::autoPaused) || state.is(Kind::inactive)) {
    overlayManager->hide();
  } else if (!state.is(Kind::cameraBusy)) {  // that leaves it as it is: its opacity is 0
    show();
  }
  if (isAlert) overlayManager->isAlertMode.assignIfChanged(true);
}

void FilterOverlay::applyOpacity(const FilterState& state) {
  const float alpha = filterAlpha(state, settingsRepo->settings.get().filterStrength);
  overlayManager->currentAlpha.assignIfChanged(std::min(alpha, greatestOpacity));
}

void FilterOverlay::applySettings(const FilterState& state) {
  applyOpacity(state);
  applyMatrix(overlayManager->lastDistanceCm);
  overlayManager->coverAllScreens.assignIfChanged(settingsRepo->settings.get().coverAllScreens);
}

void FilterOverlay::updateDistance(const FaceData& face) {
  if (!(face.boundingBoxRatio > 0)) return;
  const float coefficient = settingsRepo->settings.get().privacyMatrixCoefficient;
  const std::int64_t cm = matrixDistanceFor(face.boundingBoxRatio, coefficient);
  if (isNewMatrixDistance(cm, overlayManager->lastDistanceCm)) applyMatrix(cm);
}

void FilterOverlay::applyMatrix(std::int64_t distanceCm) {
  const FilterSettings settings = settingsRepo->settings;
  overlayManager->matrixEnabled = settings.privacyMatrixEnabled;
  overlayManager->matrixDistanceCm = distanceCm;
  overlayManager->matrixColorArgb = settings.matrixColorArgb;
  overlayManager->matrixStripeAlpha = settings.matrixStripeAlpha;
  overlayManager->lastDistanceCm = distanceCm;
}

}  // namespace sentrel
