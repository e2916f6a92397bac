// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "detection/vision_face_analyzer.h"
#include "overlay/retro_pip_manager.h"
#include "platform/desktop_services.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"
#include "support/main_loop.h"

namespace sentrel {

/// What a person gets to see and feel of an onlooker, besides the overlay: the picture, the haptic feedback,
/// the notification and the count. Main thread.
class OnlookerFeedback {
 public:
  struct Parts {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<StatsRepository> statsRepo;
    std::shared_ptr<Notifications> notifications;
    std::shared_ptr<Haptics> haptics;
    LocalizedText localizedText;
    std::shared_ptr<RetroPiPManager> retroPiP;
  };

  explicit OnlookerFeedback(Parts parts) : parts_(std::move(parts)) {}

  /// Shows the onlooker's picture from the frames of `analyzer`, which may be null.
  void follow(VisionFaceAnalyzer* analyzer);
  void forget(VisionFaceAnalyzer* analyzer);

  /// Haptic feedback, notification and count, at most once in 30 s.
  void alertStarted();
  void withdrawNotification();

 private:
  void postAlertNotification();

  const Parts parts_;
  std::optional<std::int64_t> lastAlertNotifiedAt;  // milliseconds
};

}  // namespace sentrel
