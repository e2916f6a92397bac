// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "service/service_dependencies.h"
#include "support/registration.h"

namespace sentrel {

/// Watches the battery and the shortcut while protection is on and the person is there. A low battery closes
/// the camera. Main thread.
class SystemEvents {
 public:
  explicit SystemEvents(const ServiceDependencies& dependencies);

  /// The first look at the battery is due after 30 s.
  void startBatteryMonitor();
  /// `pressed` is called in a turn of its own.
  void registerGlobalShortcut(std::function<void()> pressed);
  /// Stops both until the person is back: the camera is closed anyway, and what is typed while the screen is
  /// locked is a password.
  void setAway(bool away);
  /// Ends both.
  void end();

 private:
  void checkBattery();
  void observeShortcut();
  void updateShortcutHint();

  const ServiceDependencies& uses_;
  Registration batteryTimer;  // while the person is there
  Registration powerRegistration_;
  std::function<void()> pressed_;  // while the shortcut is registered
  Registration globalMonitor;
  Registration canObserveRegistration_;
  Registration settings_;
};

}  // namespace sentrel
