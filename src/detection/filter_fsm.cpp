// SPDX-License-Identifier: Apache-2.0
#include "detection/filter_fsm.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "support/fatal.h"

namespace sentrel {

namespace {

// A second face must stay this long before it counts: a detector's slip of a few frames is no onlooker.
constexpr std::int64_t alertConfirmMs = 500;
constexpr std::int64_t alertRecoveryMs = 3000;
// An alert that keeps coming back would flicker: the third entry within one window is held.
constexpr std::int64_t flapWindowMs = 15000;
constexpr std::int64_t flapEntries = 3;
constexpr std::int64_t flapLockMs = 30000;
constexpr std::int64_t cameraRetryMs = 5000;

constexpr float lookingYawDegrees = 30;
constexpr float lookingPitchDegrees = 25;

bool isLooking(const FaceData& face) {
  return std::abs(face.eulerY) < lookingYawDegrees && std::abs(face.eulerX) < lookingPitchDegrees;
}

float baseOpacity(std::int64_t strength) {
  constexpr std::array byStrength{0.55F, 0.65F, 0.75F, 0.85F, 0.95F};
  const bool isKnown = strength >= 1 && strength <= 5;
  return byStrength[isKnown ? static_cast<std::size_t>(strength - 1) : 2];
}

}  // namespace

float filterAlpha(const FilterState& state, std::int64_t strength) {
  const float base = baseOpacity(strength);
  if (state.is(FilterState::Kind::nominal)) return base * 0.55F;
  if (state.is(FilterState::Kind::inattention)) return base * 0.8F;
  if (state.is(FilterState::Kind::alert)) return std::min(base, 0.8F);
  return 0;
}

bool FilterFsm::enter(FilterState next) {
  if (next == state_.get()) return false;
  state_ = next;
  return true;
}

void FilterFsm::resume() {
  if (!enter(FilterState::nominal(settings.filterStrength))) return;
  inattentionStartMs = 0;
  alertConfirmStartMs = 0;
}

void FilterFsm::activate() {
  if (state_.get().is(FilterState::Kind::inactive)) resume();
}

std::optional<FilterFsm::Timer> FilterFsm::timer(std::int64_t nowMs) const {
  const auto since = [nowMs](Timer::Kind kind, std::int64_t beganMs, std::int64_t lengthMs) {
    return Timer{kind, std::clamp<std::int64_t>(checkedSubtract(nowMs, beganMs), 0, lengthMs), lengthMs};
  };
  const FilterState& state = state_.get();
  if (state.is(FilterState::Kind::nominal) && inattentionStartMs != 0 && settings.inattentionDelayMs > 0)
    return since(Timer::Kind::lookingAway, inattentionStartMs, settings.inattentionDelayMs);
  if (!state.is(FilterState::Kind::alert)) return std::nullopt;
  if (nowMs < alertLockedUntilMs)
    return since(Timer::Kind::held, checkedSubtract(alertLockedUntilMs, flapLockMs), flapLockMs);
  if (!alertRecoveryStartMs) return std::nullopt;
  return since(Timer::Kind::recovery, *alertRecoveryStartMs, alertRecoveryMs);
}

void FilterFsm::handle(const DetectionInput& input) {
  const FilterState::Kind kind = state_.get().kind();
  if (kind == FilterState::Kind::nominal) handleNominal(input);
  if (kind == FilterState::Kind::inattention) handleInattention(input);
  if (kind == FilterState::Kind::alert) handleAlert(input);
}

void FilterFsm::handleNominal(const DetectionInput& input) {
  const std::int64_t now = input.timestampMs;
  if (confirmAlert(input)) return;
  if (!input.primaryFace) return;
  if (isLooking(*input.primaryFace)) {
    inattentionStartMs = 0;
    return;
  }
  if (inattentionStartMs == 0) inattentionStartMs = now;
  if (checkedSubtract(now, inattentionStartMs) < settings.inattentionDelayMs) return;
  enter(FilterState::inattention(settings.filterStrength));
}

void FilterFsm::handleInattention(const DetectionInput& input) {
  if (confirmAlert(input)) return;
  if (!input.primaryFace) {
    // Someone who turned away and then vanished may have been pushed aside: no confirmation here.
    recordAlertEntry(input.timestampMs);
    enter(FilterState::alert());
    return;
  }
  if (isLooking(*input.primaryFace)) resume();
}

void FilterFsm::handleAlert(const DetectionInput& input) {
  const std::int64_t now = input.timestampMs;
  if (input.faceCount >= 2 || now < alertLockedUntilMs) {
    alertRecoveryStartMs.reset();
    return;
  }
  if (!alertRecoveryStartMs) alertRecoveryStartMs = now;
  if (checkedSubtract(now, *alertRecoveryStartMs) < alertRecoveryMs) return;
  alertRecoveryStartMs.reset();
  resume();
}

/// Whether a second face is there. Once it has stayed long enough, that is an alert.
bool FilterFsm::confirmAlert(const DetectionInput& input) {
  const std::int64_t now = input.timestampMs;
  if (input.faceCount < 2) {
    alertConfirmStartMs = 0;
    return false;
  }
  if (alertConfirmStartMs == 0) alertConfirmStartMs = now;
  if (checkedSubtract(now, alertConfirmStartMs) < alertConfirmMs) return true;
  alertConfirmStartMs = 0;
  recordAlertEntry(now);
  enter(FilterState::alert());
  return true;
}

void FilterFsm::recordAlertEntry(std::int64_t nowMs) {
  if (checkedSubtract(nowMs, alertFlapWindowStartMs) > flapWindowMs) {
    alertFlapCount = 0;
    alertFlapWindowStartMs = nowMs;
  }
  ++alertFlapCount;
  if (alertFlapCount < flapEntries) return;
  alertLockedUntilMs = checkedAdd(nowMs, flapLockMs);
  alertFlapCount = 0;
}

void FilterFsm::onSystemEvent(SystemEvent event) {
  using Kind = FilterState::Kind;
  const FilterState current = state_.get();
  const auto batteryPause = FilterState::autoPaused(PauseReason::lowBattery());
  // Only what paused it resumes it; who comes back resumes from every pause.
  switch (event.kind) {
    case SystemEvent::userPause:
      enter(FilterState::autoPaused(PauseReason::userPaused(event.durationMs)));
      break;
    case SystemEvent::screenOff:
      enter(FilterState::autoPaused(PauseReason::screenOff()));
      break;
    case SystemEvent::screenOn:
      if (current.is(Kind::autoPaused)) resume();
      break;
    case SystemEvent::batteryLow:
      enter(batteryPause);
      break;
    case SystemEvent::batteryRecovered:
      if (current == batteryPause) resume();
      break;
    case SystemEvent::cameraBusy:
      enter(FilterState::cameraBusy(cameraRetryMs));
      break;
    case SystemEvent::cameraAvailable:
      if (current.is(Kind::cameraBusy)) resume();
      break;
  }
}

}  // namespace sentrel
