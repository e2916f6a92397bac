// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "detection/vision_face_analyzer.h"
#include "service/filter_overlay.h"
#include "service/service_dependencies.h"
#include "support/geometry.h"
#include "support/registration.h"

namespace sentrel {

/// Tells the person of an onlooker, besides the overlay: the picture-in-picture, haptic feedback, a
/// notification, and the count of alerts. Main thread.
class OnlookerFeedback {
 public:
  /// One for all alerts: a new one takes the place of the former.
  static constexpr const char* notification = "sentrel.alert";
  // The person's answers to it, and how long the pause is.
  static constexpr const char* nobodyAction = "nobody";
  static constexpr const char* pauseAction = "pause";
  static constexpr std::int64_t pauseMs = 15 * 60 * 1000;

  explicit OnlookerFeedback(const ServiceDependencies& dependencies) : uses_(dependencies) {}

  /// The face that alerts in the newest frame, or none.
  void follow(const std::optional<NormalizedRect>& onlooker) { *onlooker_ = onlooker; }

  /// Of an alert that begins: shows the picture-in-picture from the frames of `analyzer`, which may be null,
  /// unless others see the screen. Haptic feedback, notification and count follow at most once in 30 s; a
  /// notification that stands for the darkening comes every time. Then those of others are hidden, where the
  /// person wants that. Gives whether a notification was shown.
  bool alertStarted(VisionFaceAnalyzer* analyzer, const FilterOverlay::Softening& softening);
  /// The looks of the alert that is on were `former`, and are `softening` now.
  void softened(VisionFaceAnalyzer* analyzer, const FilterOverlay::Softening& former,
                const FilterOverlay::Softening& softening);
  /// Hides the picture-in-picture, and lets others notify again; our notification stays.
  void alertEnded(VisionFaceAnalyzer* analyzer);
  void withdrawNotification();

 private:
  void showPicture(VisionFaceAnalyzer* analyzer);
  void hidePicture(VisionFaceAnalyzer* analyzer);
  bool tell(const FilterOverlay::Softening& softening);
  void postAlertNotification(bool silent);

  const ServiceDependencies& uses_;
  const std::shared_ptr<std::optional<NormalizedRect>> onlooker_ =
      std::make_shared<std::optional<NormalizedRect>>();
  std::optional<std::int64_t> lastAlertNotifiedAt;  // milliseconds
  Registration othersHidden_;
};

/// Shows a notification when the camera has given nothing for half a minute while protection is on: once,
/// until it gives frames again. Main thread.
class BlindnessNotice {
 public:
  static constexpr std::int64_t delayMs = 30'000;

  explicit BlindnessNotice(const ServiceDependencies& dependencies) : uses_(dependencies) {}

  /// What became of the camera, while protection is switched on.
  void follow(const CameraControl::Status& status);
  /// Protection was switched off.
  void end();

 private:
  void show();

  const ServiceDependencies& uses_;
  bool isShown_ = false;
  Registration timer_;
};

}  // namespace sentrel
