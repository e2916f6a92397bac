// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <functional>
#include <memory>

#include "detection/av_capture_manager.h"
#include "platform/capture_session.h"
#include "platform/desktop_services.h"
#include "settings/settings_repository.h"
#include "support/registration.h"
#include "views/calibration_view.h"
#include "views/onboarding_page_layout.h"

// The five pages of the first run. Each calls the action that it was given when the person goes on. Main
// thread.

namespace sentrel {

/// Asks the person whether the camera may be used.
class OnboardingCameraPage : public OnboardingPageLayout {
 public:
  OnboardingCameraPage(const std::shared_ptr<CameraConsent>& consent,
                       std::shared_ptr<AVCaptureManager> camera, std::function<void()> onNext);
};

/// Says what the overlay does.
class OnboardingOverlayPage : public OnboardingPageLayout {
 public:
  explicit OnboardingOverlayPage(std::function<void()> onNext);
};

/// Asks for notifications.
class OnboardingNotificationsPage : public OnboardingPageLayout {
 public:
  OnboardingNotificationsPage(std::shared_ptr<Notifications> notifications,
                              const std::function<void()>& onNext);

 private:
  void answered(bool yes, const std::function<void()>& onNext);
  bool granted = false;
};

/// Offers a calibration.
class OnboardingCalibrationPage : public OnboardingPageLayout {
 public:
  struct Parts {
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::function<std::shared_ptr<CalibrationSession>()> newCalibration;
  };
  OnboardingCalibrationPage(Parts parts, std::function<void()> onNext);

 private:
  void calibrate();

  const Parts parts_;
  bool showCalibration = false;
  Registration settingsRegistration_;
};

/// Offers to start with the session.
class OnboardingLoginPage : public OnboardingPageLayout {
 public:
  OnboardingLoginPage(std::shared_ptr<LoginItem> loginItem, std::shared_ptr<SettingsRepository> settingsRepo,
                      const std::function<void()>& onDone);

 private:
  bool enabled = false;
};

}  // namespace sentrel
