// SPDX-License-Identifier: Apache-2.0
#include "service/camera_choice.h"

#include <utility>

namespace sentrel {

CameraChoice::CameraChoice(std::shared_ptr<AVCaptureManager> cameraManager,
                           std::shared_ptr<SettingsRepository> settingsRepo)
    : cameraManager_(std::move(cameraManager)), settingsRepo_(std::move(settingsRepo)) {
  settingsRegistration_ = settingsRepo_->settings.onChange([this](const FilterSettings&) { apply(); });
  runningRegistration_ = cameraManager_->isRunning().onChange([this](bool) { apply(); });
  apply();
}

void CameraChoice::apply() {
  const auto& stored = settingsRepo_->settings.get().selectedCameraID;
  if (cameraManager_->isRunning() || cameraManager_->preferredCameraID() == stored) return;
  cameraManager_->switchCamera(stored);
}

}  // namespace sentrel
