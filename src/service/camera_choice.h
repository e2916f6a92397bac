// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "detection/av_capture_manager.h"
#include "settings/settings_repository.h"
#include "support/registration.h"

namespace sentrel {

/// Keeps the camera manager's preferred camera equal to the stored one while the camera is stopped, so that
/// every start uses the person's choice, whoever starts it. A running camera is switched by who edits the
/// choice. One for the process, made before the first start. Main thread.
class CameraChoice {
 public:
  CameraChoice(std::shared_ptr<AVCaptureManager> cameraManager,
               std::shared_ptr<SettingsRepository> settingsRepo);
  CameraChoice(const CameraChoice&) = delete;
  CameraChoice& operator=(const CameraChoice&) = delete;

 private:
  void apply();

  const std::shared_ptr<AVCaptureManager> cameraManager_;
  const std::shared_ptr<SettingsRepository> settingsRepo_;
  Registration settingsRegistration_;
  Registration runningRegistration_;
};

}  // namespace sentrel
