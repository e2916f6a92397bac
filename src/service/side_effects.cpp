// SPDX-License-Identifier: Apache-2.0
//
// What follows from a state of the machine, one turn after its opacity.
#include <utility>

#include "service/privacy_filter_service.h"
#include "support/checked.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

/// One for all alerts: a new notification takes the place of the former.
constexpr const char* alertNotification = "sentrel.alert";

/// Feedback at most this often, however often an onlooker comes back.
constexpr std::int64_t feedbackCooldownMs = 30'000;

void assignIfChanged(Published<bool>& published, bool value) {
  if (published.get() != value) published = value;
}

}  // namespace

void PrivacyFilterService::handleFsmSideEffects(const FilterState& state) {
  assignIfChanged(isAlert_, state.is(FilterState::Kind::alert));
  sessionEvents_->setResting(state == FilterState::autoPaused(PauseReason::lowBattery()));
  if (!state.is(FilterState::Kind::alert)) forgetOnlooker();
  switch (state.kind()) {
    case FilterState::Kind::nominal:
    case FilterState::Kind::inattention:
      if (analyzer) analyzer->isSuspended = false;
      assignIfChanged(overlayManager->isAlertMode, false);
      ensureOverlay();
      withdrawNotification();
      break;
    case FilterState::Kind::alert:
      if (analyzer) analyzer->isSuspended = false;
      ensureOverlay();
      assignIfChanged(overlayManager->isAlertMode, true);
      followOnlooker();
      onAlertStarted();
      break;
    case FilterState::Kind::autoPaused:
      assignIfChanged(overlayManager->isAlertMode, false);
      overlayManager->hide();
      if (analyzer) analyzer->isSuspended = true;
      break;
    case FilterState::Kind::cameraBusy:
      assignIfChanged(overlayManager->isAlertMode, false);
      scheduleBusyRetry(state.retryInMs());
      break;
    case FilterState::Kind::inactive:
      assignIfChanged(overlayManager->isAlertMode, false);
      overlayManager->hide();
      withdrawNotification();
      break;
  }
}

void PrivacyFilterService::ensureOverlay() {
  // Nothing is mapped above a screen locker.
  const bool mayShow = !away_ && !sessionEvents_->isLocked();
  if (mayShow && !overlayManager->isShowing()) overlayManager->show();
}

// The onlooker.

void PrivacyFilterService::followOnlooker() {
  if (!analyzer) return;
  analyzer->onRetroFrame = [pip = retroPiP_](const FrameRef& frame,
                                             const std::optional<NormalizedRect>& face) {
    if (!pip->isOpen()) pip->openWindow();
    pip->renderFrame(frame, face);
  };
}

void PrivacyFilterService::forgetOnlooker() {
  if (analyzer) analyzer->onRetroFrame = nullptr;
  retroPiP_->hide();
}

void PrivacyFilterService::onAlertStarted() {
  const std::int64_t now = environment_.clock->nowMs();
  if (lastAlertNotifiedAt && checkedSubtract(now, *lastAlertNotifiedAt) < feedbackCooldownMs) return;
  lastAlertNotifiedAt = now;
  if (settingsRepo->settings.get().hapticOnAlert) haptics_->perform();
  postAlertNotification();
  statsRepo->incrementAlerts();
}

void PrivacyFilterService::postAlertNotification() {
  notifications_->add(alertNotification, {.title = localizedText_("notif_alert_title"),
                                          .body = localizedText_("notif_alert_text")});
}

void PrivacyFilterService::withdrawNotification() {
  notifications_->remove(alertNotification);
}

// The busy camera.

void PrivacyFilterService::scheduleBusyRetry(std::int64_t retryInMs) {
  if (retryInMs < 0) fatal("the camera's retry delay is negative");
  busyRetry_ = environment_.mainLoop->after(retryInMs, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->retryBusyCamera();
  });
}

void PrivacyFilterService::retryBusyCamera() {
  if (!fsm.state().get().is(FilterState::Kind::cameraBusy)) return;
  fsm.onSystemEvent(FilterFsm::SystemEvent::cameraAvailable);
  environment_.mainLoop->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    // The person may have switched off in between.
    if (self && self->isActive_) self->start();
  });
}

}  // namespace sentrel
