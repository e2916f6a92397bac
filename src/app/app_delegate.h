// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFileSystemWatcher>
#include <QPointer>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/doctor.h"
#include "app/event_log.h"
#include "app/menu_bar_controller.h"
#include "app/program_bus.h"
#include "platform/capture_session.h"
#include "platform/overlay_surface.h"
#include "service/privacy_filter_service.h"
#include "service/remote_control.h"
#include "support/registration.h"
#include "views/onboarding_view.h"

namespace sentrel {

/// What happens at launch and at the end, and what the session bus is told and asks in between. Main thread.
class AppDelegate {
 public:
  struct Dependencies {
    ProgramBus& bus;
    std::shared_ptr<RemoteControl> remote;
    std::unique_ptr<MenuBarController> menuBarController;  ///< null where there are no windows
    std::shared_ptr<CameraConsent> consent;
    Launch launch = Launch::person;
    std::shared_ptr<Bus> sessionBus;
  };

  explicit AppDelegate(Dependencies dependencies);
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;
  ~AppDelegate();

  /// Follows the bus and the service from now on. Switches protection on, unless the bus started the program:
  /// then the first message that asks for an action does. Once, with the event loop about to run.
  void applicationDidFinishLaunching();
  /// Closes the camera for good and switches protection off; a pause goes on after the next start. What this
  /// posts must still run.
  void applicationWillTerminate();

  /// What there is to know when something does not work; who asks meanwhile gets the same report. Told
  /// within 2 s, in a later turn, unless this has gone by then.
  void report(std::function<void(const Report&)> told);

 private:
  bool begin();
  void askForConsent();
  void showOnboarding();
  void watchForModels(const std::optional<CameraFailure>& failure);
  void showOnTheBus();
  void showOnTheBusSoon();
  const char* carryOut(const std::string& request, const std::vector<std::int64_t>& numbers);
  const char* open(const std::string& request);
  [[nodiscard]] QString statusLines() const;
  [[nodiscard]] ProgramFacts programFacts() const;

  const Dependencies uses_;
  QPointer<OnboardingView> onboardingWindow;
  std::shared_ptr<PrivacyFilterService> service_;
  bool begun_ = false;            // protection was switched on, whether or not it still is
  std::int64_t wallAheadMs_ = 0;  // of the program's clock, as it was last told
  Registration shownSoon_;
  std::array<Registration, 14> registrations_;
  std::optional<EventLog> events_;
  std::vector<std::function<void(const Report&)>> waiting_;  // for the report that is being made
  Registration examination_;
  std::unique_ptr<QFileSystemWatcher> modelWatch_;  // while a model is missing
};

}  // namespace sentrel
