// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "detection/av_capture_manager.h"
#include "detection/calibration_session.h"
#include "platform/capture_session.h"
#include "platform/desktop_services.h"
#include "settings/settings_repository.h"
#include "views/controls/layout.h"
#include "views/controls/windows.h"

namespace sentrel {

class OnboardingPageLayout;
class PageDots;

/// The first run, in five pages. The last one marks it as done; a window that is closed before comes again at
/// the next launch, and one that is closed before its first page was answered means no. Main thread.
class OnboardingView : public FixedWindow {
 public:
  struct Parts {
    std::shared_ptr<CameraConsent> consent;
    std::shared_ptr<AVCaptureManager> camera;
    std::shared_ptr<Notifications> notifications;
    std::shared_ptr<SettingsRepository> settingsRepo;
    std::shared_ptr<LoginItem> loginItem;
    std::shared_ptr<UserDefaults> defaults;
    std::function<std::shared_ptr<CalibrationSession>()> newCalibration;  ///< idle, for one calibration
    std::function<void(bool)> isPresented;                                ///< false closes the window
  };
  static constexpr int pages = 5;

  explicit OnboardingView(Parts parts);

  /// 0 to `pages` - 1. The page before fades out and goes.
  void setPage(int index);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  OnboardingPageLayout* buildPage(int index);
  /// Stores that the first run is done, then closes.
  void finish();

  const Parts parts_;
  int page = -1;  // none yet
  ScrollPage* scroll_;
  OnboardingPageLayout* shown_ = nullptr;
  PageDots* dots_;
};

}  // namespace sentrel
