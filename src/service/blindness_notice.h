// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "detection/camera_control.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// Tells a person who believes to be protected that the camera has given nothing for half a minute: once,
/// until it gives something again. Main thread.
class BlindnessNotice {
 public:
  static constexpr std::int64_t patienceMs = 30'000;

  BlindnessNotice(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<CameraControl> cameraControl,
                  std::shared_ptr<Notifications> notifications, LocalizedText localizedText);

  /// What became of the camera, while protection is switched on.
  void follow(const CameraControl::Status& status);
  /// Protection was switched off.
  void end();

 private:
  void tell();

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<CameraControl> cameraControl_;
  const std::shared_ptr<Notifications> notifications_;
  const LocalizedText localizedText_;
  bool told_ = false;
  Registration timer_;
};

}  // namespace sentrel
