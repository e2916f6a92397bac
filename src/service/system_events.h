// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "detection/camera_control.h"
#include "overlay/overlay_window_manager.h"
#include "platform/platform.h"
#include "settings/settings_repository.h"
#include "support/registration.h"

namespace sentrel {

/// Watches the battery and the shortcut while protection is on. A low battery closes the camera. Main thread.
class SystemEvents {
 public:
  SystemEvents(const Platform& platform, std::shared_ptr<CameraControl> cameraControl,
               std::shared_ptr<OverlayWindowManager> overlay, std::shared_ptr<SettingsRepository> settings);

  void startBatteryMonitor();
  /// `pressed` is called in a turn of its own.
  void registerGlobalShortcut(std::function<void()> pressed);
  /// Stops observing the shortcut until the person is back: what is typed while the screen is locked is a
  /// password.
  void setAway(bool away);
  /// Ends both.
  void end();

 private:
  void checkBattery();
  void observeShortcut();
  void updateShortcutHint();

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<PowerSource> powerSource_;
  const std::shared_ptr<KeyMonitor> keyMonitor_;
  const std::shared_ptr<CameraControl> cameraControl_;
  const std::shared_ptr<OverlayWindowManager> overlayManager;
  const std::shared_ptr<SettingsRepository> settingsRepo;
  Registration batteryTimer;
  Registration powerRegistration_;
  std::function<void()> pressed_;  // while the shortcut is registered
  Registration globalMonitor;
  Registration canObserveRegistration_;
};

}  // namespace sentrel
