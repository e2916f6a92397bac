// SPDX-License-Identifier: Apache-2.0
#include "service/user_feedback.h"

#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr const char* cameraNotification = "sentrel.camera";

/// Feedback at most this often, however often an onlooker comes back.
constexpr std::int64_t feedbackCooldownMs = 30'000;

}  // namespace

void OnlookerFeedback::showPicture(VisionFaceAnalyzer* analyzer) {
  if (analyzer == nullptr) return;
  // Which of the faces in it alerts is known only once the frame was judged, in the next turn.
  analyzer->onRetroFrame = [pip = uses_.retroPiP, loop = uses_.platform.mainLoop,
                            source = analyzer->weak_from_this(), onlooker = onlooker_](
                               const FrameRef& frame, const std::optional<NormalizedRect>& /*second*/) {
    loop->post([pip, source, onlooker, frame] {
      const auto from = source.lock();
      if (!from || !from->onRetroFrame) return;  // the alert has ended
      if (!pip->isOpen()) pip->openWindow();
      pip->renderFrame(frame, *onlooker);
    });
  };
}

void OnlookerFeedback::hidePicture(VisionFaceAnalyzer* analyzer) {
  if (analyzer != nullptr) analyzer->onRetroFrame = nullptr;
  uses_.retroPiP->hide();
}

void OnlookerFeedback::softened(VisionFaceAnalyzer* analyzer, const FilterOverlay::Softening& former,
                                const FilterOverlay::Softening& softening) {
  if (softening.hidesStripes) {
    hidePicture(analyzer);
  } else {
    showPicture(analyzer);
  }
  // What was dark until now would go without a word.
  if (softening.noDarkening && !former.noDarkening) postAlertNotification(true);
}

bool OnlookerFeedback::alertStarted(VisionFaceAnalyzer* analyzer, const FilterOverlay::Softening& softening) {
  if (!softening.hidesStripes) showPicture(analyzer);
  const bool notifies = tell(softening);
  const bool hidesOthers = uses_.settingsRepo->options.get().hideOtherNotifications;
  if (hidesOthers && !othersHidden_) othersHidden_ = uses_.platform.notifications->hideOthers();
  return notifies;
}

bool OnlookerFeedback::tell(const FilterOverlay::Softening& softening) {
  const std::int64_t now = uses_.platform.clock->nowMs();
  if (lastAlertNotifiedAt && checkedSubtract(now, *lastAlertNotifiedAt) < feedbackCooldownMs) {
    if (softening.noDarkening) postAlertNotification(true);
    return softening.noDarkening;
  }
  lastAlertNotifiedAt = now;
  if (uses_.settingsRepo->settings.get().hapticOnAlert) uses_.platform.haptics->perform();
  const bool darkensOnly = uses_.settingsRepo->options.get().reaction == Reaction::darkenOnly;
  const bool notifies = !darkensOnly || softening.noDarkening;
  if (notifies) postAlertNotification(false);
  uses_.statsRepo->incrementAlerts();
  return notifies;
}

void OnlookerFeedback::postAlertNotification(bool silent) {
  const auto& text = uses_.platform.localizedText;
  uses_.platform.notifications->add(notification,
                                    {.title = text(textId("notif_alert_title")),
                                     .body = text(textId("notif_alert_text")),
                                     .silent = silent,
                                     .actions = {{nobodyAction, text(textId("Ce n'est personne"))},
                                                 {pauseAction, text(textId("Pause 15 min"))}}});
}

void OnlookerFeedback::alertEnded(VisionFaceAnalyzer* analyzer) {
  hidePicture(analyzer);
  othersHidden_.reset();
}

void OnlookerFeedback::withdrawNotification() {
  uses_.platform.notifications->remove(notification);
}

void BlindnessNotice::follow(const CameraControl::Status& status) {
  using Kind = CameraControl::Status::Kind;
  if (status.kind == Kind::seeing) {
    end();
  } else if (status.kind != Kind::blind) {
    timer_.reset();
  } else if (!isShown_ && !timer_) {
    timer_ = uses_.platform.mainLoop->after(delayMs, [this] { show(); });
  }
}

void BlindnessNotice::show() {
  timer_.reset();
  const auto& failure = uses_.cameraControl->failure().get();
  if (!failure) return;
  isShown_ = true;
  uses_.platform.notifications->add(cameraNotification,
                                    {.title = uses_.platform.localizedText(textKey(failure->kind)),
                                     .body = uses_.platform.localizedText(textId("notif_camera_text"))});
}

void BlindnessNotice::end() {
  timer_.reset();
  if (std::exchange(isShown_, false)) uses_.platform.notifications->remove(cameraNotification);
}

}  // namespace sentrel
