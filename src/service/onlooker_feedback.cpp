// SPDX-License-Identifier: Apache-2.0
#include "service/onlooker_feedback.h"

#include "support/fatal.h"

namespace sentrel {

namespace {

/// One for all alerts: a new notification takes the place of the former.
constexpr const char* alertNotification = "sentrel.alert";

/// Feedback at most this often, however often an onlooker comes back.
constexpr std::int64_t feedbackCooldownMs = 30'000;

}  // namespace

void OnlookerFeedback::follow(VisionFaceAnalyzer* analyzer) {
  if (analyzer == nullptr) return;
  analyzer->onRetroFrame = [pip = parts_.retroPiP](const FrameRef& frame,
                                                   const std::optional<NormalizedRect>& face) {
    if (!pip->isOpen()) pip->openWindow();
    pip->renderFrame(frame, face);
  };
}

void OnlookerFeedback::forget(VisionFaceAnalyzer* analyzer) {
  if (analyzer != nullptr) analyzer->onRetroFrame = nullptr;
  parts_.retroPiP->hide();
}

void OnlookerFeedback::alertStarted() {
  const std::int64_t now = parts_.clock->nowMs();
  if (lastAlertNotifiedAt && checkedSubtract(now, *lastAlertNotifiedAt) < feedbackCooldownMs) return;
  lastAlertNotifiedAt = now;
  if (parts_.settingsRepo->settings.get().hapticOnAlert) parts_.haptics->perform();
  postAlertNotification();
  parts_.statsRepo->incrementAlerts();
}

void OnlookerFeedback::postAlertNotification() {
  parts_.notifications->add(alertNotification, {.title = parts_.localizedText(textId("notif_alert_title")),
                                                .body = parts_.localizedText(textId("notif_alert_text"))});
}

void OnlookerFeedback::withdrawNotification() {
  parts_.notifications->remove(alertNotification);
}

}  // namespace sentrel
