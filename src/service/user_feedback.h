// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "detection/camera_control.h"
#include "detection/vision_face_analyzer.h"
#include "overlay/retro_pip_manager.h"
#include "platform/platform.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/registration.h"

namespace sentrel {

/// Tells the person of an onlooker, besides the overlay: the picture-in-picture, haptic feedback, a
/// notification, and the count of alerts. Main thread.
class OnlookerFeedback {
 public:
  OnlookerFeedback(const Platform& platform, std::shared_ptr<SettingsRepository> settings,
                   std::shared_ptr<StatsRepository> stats, std::shared_ptr<RetroPiPManager> retroPiP);

  /// Shows the picture-in-picture from the frames of `analyzer`, which may be null. Haptic feedback,
  /// notification and count follow at most once in 30 s.
  void alertStarted(VisionFaceAnalyzer* analyzer);
  /// Hides the picture-in-picture; the notification stays.
  void alertEnded(VisionFaceAnalyzer* analyzer);
  void withdrawNotification();

 private:
  void postAlertNotification();

  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<Notifications> notifications_;
  const std::shared_ptr<Haptics> haptics_;
  const LocalizedText localizedText_;
  const std::shared_ptr<SettingsRepository> settingsRepo;
  const std::shared_ptr<StatsRepository> statsRepo;
  const std::shared_ptr<RetroPiPManager> retroPiP_;
  std::optional<std::int64_t> lastAlertNotifiedAt;  // milliseconds
};

/// Shows a notification when the camera has given nothing for half a minute while protection is on: once,
/// until it gives frames again. Main thread.
class BlindnessNotice {
 public:
  static constexpr std::int64_t delayMs = 30'000;

  BlindnessNotice(const Platform& platform, std::shared_ptr<CameraControl> cameraControl);

  /// What became of the camera, while protection is switched on.
  void follow(const CameraControl::Status& status);
  /// Protection was switched off.
  void end();

 private:
  void show();

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Notifications> notifications_;
  const LocalizedText localizedText_;
  const std::shared_ptr<CameraControl> cameraControl_;
  bool isShown_ = false;
  Registration timer_;
};

}  // namespace sentrel
