// SPDX-License-Identifier: Apache-2.0
#include "service/user_feedback.h"

#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

/// One for all alerts: a new notification takes the place of the former.
constexpr const char* alertNotification = "sentrel.alert";
constexpr const char* cameraNotification = "sentrel.camera";

/// Feedback at most this often, however often an onlooker comes back.
constexpr std::int64_t feedbackCooldownMs = 30'000;

}  // namespace

OnlookerFeedback::OnlookerFeedback(const Platform& platform, std::shared_ptr<SettingsRepository> settings,
                                   std::shared_ptr<StatsRepository> stats,
                                   std::shared_ptr<RetroPiPManager> retroPiP)
    : clock_(platform.clock),
      notifications_(platform.notifications),
      haptics_(platform.haptics),
      localizedText_(platform.localizedText),
      settingsRepo(std::move(settings)),
      statsRepo(std::move(stats)),
      retroPiP_(std::move(retroPiP)) {}

void OnlookerFeedback::alertStarted(VisionFaceAnalyzer* analyzer) {
  if (analyzer != nullptr) {
    analyzer->onRetroFrame = [pip = retroPiP_](const FrameRef& frame,
                                               const std::optional<NormalizedRect>& face) {
      if (!pip->isOpen()) pip->openWindow();
      pip->renderFrame(frame, face);
    };
  }
  const std::int64_t now = clock_->nowMs();
  if (lastAlertNotifiedAt && checkedSubtract(now, *lastAlertNotifiedAt) < feedbackCooldownMs) return;
  lastAlertNotifiedAt = now;
  if (settingsRepo->settings.get().hapticOnAlert) haptics_->perform();
  postAlertNotification();
  statsRepo->incrementAlerts();
}

void OnlookerFeedback::postAlertNotification() {
  notifications_->add(alertNotification, {.title = localizedText_(textId("notif_alert_title")),
                                          .body = localizedText_(textId("notif_alert_text"))});
}

void OnlookerFeedback::alertEnded(VisionFaceAnalyzer* analyzer) {
  if (analyzer != nullptr) analyzer->onRetroFrame = nullptr;
  retroPiP_->hide();
}

void OnlookerFeedback::withdrawNotification() {
  notifications_->remove(alertNotification);
}

BlindnessNotice::BlindnessNotice(const Platform& platform, std::shared_ptr<CameraControl> cameraControl)
    : mainLoop_(platform.mainLoop),
      notifications_(platform.notifications),
      localizedText_(platform.localizedText),
      cameraControl_(std::move(cameraControl)) {}

void BlindnessNotice::follow(const CameraControl::Status& status) {
  using Kind = CameraControl::Status::Kind;
  if (status.kind == Kind::seeing) {
    end();
  } else if (status.kind != Kind::blind) {
    timer_.reset();
  } else if (!isShown_ && !timer_) {
    timer_ = mainLoop_->after(delayMs, [this] { show(); });
  }
}

void BlindnessNotice::show() {
  timer_.reset();
  const auto& failure = cameraControl_->failure().get();
  if (!failure) return;
  isShown_ = true;
  notifications_->add(cameraNotification, {.title = localizedText_(textKey(failure->kind)),
                                           .body = localizedText_(textId("notif_camera_text"))});
}

void BlindnessNotice::end() {
  timer_.reset();
  if (std::exchange(isShown_, false)) notifications_->remove(cameraNotification);
}

}  // namespace sentrel
