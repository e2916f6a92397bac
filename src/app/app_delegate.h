// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QPointer>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

#include "app/program_bus.h"
#include "app/program_windows.h"
#include "platform/capture_session.h"
#include "platform/overlay_surface.h"
#include "service/privacy_filter_service.h"
#include "support/registration.h"
#include "views/onboarding_view.h"

namespace sentrel {

/// What happens at launch and at the end, and what the session bus is told and asks in between. Main thread.
class AppDelegate {
 public:
  struct Parts {
    ProgramBus& bus;
    std::unique_ptr<ProgramWindows> windows;  ///< null where there are none
    std::shared_ptr<CameraConsent> consent;
    std::function<void()> quit;  ///< ends the event loop
    Launch launch = Launch::person;
  };

  explicit AppDelegate(Parts parts);
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;
  ~AppDelegate();

  void applicationDidFinishLaunching();
  void applicationWillTerminate();

 private:
  bool begin();
  [[nodiscard]] bool isSwitchedOn() const;
  void tellSwitchedOff() const;
  void askForConsent();
  void showOnboarding();
  void tellTheBus();
  void tellThePerson();
  void watchForModels(const std::optional<CameraFailure>& failure);
  void performAction(const QString& action);
  void show(void (ProgramWindows::*window)());

  const Parts parts_;
  QPointer<OnboardingView> onboardingWindow;
  std::shared_ptr<PrivacyFilterService> service_;
  bool begun_ = false;  // protection was switched on, whether or not it still is
  Registration asked_;
  Registration activated_;
  Registration actions_;
  Registration chosen_;
  Registration state_;
  Registration active_;
  Registration starting_;
  Registration stats_;
  Registration failure_;
  Registration limitation_;
  std::unique_ptr<QFileSystemWatcher> modelWatch_;  // while a model is missing
};

}  // namespace sentrel
