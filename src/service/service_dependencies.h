// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "detection/camera_control.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "platform/platform.h"
#include "settings/settings_repository.h"
#include "settings/stats_repository.h"

namespace sentrel {

/// What protection is made of. The service keeps it, and its parts refer to it.
struct ServiceDependencies {
  Platform platform;
  std::shared_ptr<CameraFeedProviding> cameraManager;
  std::shared_ptr<CameraControl> cameraControl;
  std::shared_ptr<OverlayWindowManager> overlayManager;
  std::shared_ptr<RetroPiPManager> retroPiP;
  std::shared_ptr<SettingsRepository> settingsRepo;
  std::shared_ptr<StatsRepository> statsRepo;
};

}  // namespace sentrel
