// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/program_bus.h"
#include "platform/overlay_surface.h"
#include "service/camera_choice.h"
#include "service/privacy_filter_service.h"
#include "support/registration.h"

namespace sentrel {

/// What happens at launch and at the end, and what the session bus is told and asks in between. Main thread.
class AppDelegate {
 public:
  /// `quit` ends the event loop.
  AppDelegate(ProgramBus& bus, std::function<void()> quit);

  void applicationDidFinishLaunching();
  void applicationWillTerminate();

 private:
  void performAction(const std::string& action);

  ProgramBus& bus_;
  std::function<void()> quit_;
  std::unique_ptr<CameraChoice> cameraChoice_;
  std::shared_ptr<PrivacyFilterService> service_;
  Registration actions_;
  Registration state_;
  Registration active_;
  Registration failure_;
  Registration limitation_;
};

}  // namespace sentrel
