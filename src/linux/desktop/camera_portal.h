// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>

#include "linux/desktop/bus.h"
#include "linux/desktop/desktop_portal.h"
#include "support/registration.h"

namespace sentrel {

/// The cameras of a desktop that shows them through its portal alone (org.freedesktop.portal.Camera), as a
/// sandbox does. Main thread.
class CameraPortal {
 public:
  explicit CameraPortal(std::shared_ptr<DesktopPortal> portal);

  /// Asks for a connection to the PipeWire daemon on which the cameras are listed, as soon as the portal
  /// runs. Where that says that there is no camera nobody is asked; else the person may be, once. `opened` is
  /// called at most once, with a connected socket; a later question replaces this one.
  void open(std::function<void(BusDescriptor)> opened);

 private:
  void askForCameras();
  void askPerson();
  void openRemote();

  const std::shared_ptr<DesktopPortal> portal_;
  std::function<void(BusDescriptor)> opened_;
  bool isRefused_ = false;
  Registration request_;  // the one under way
  Registration following_;
};

}  // namespace sentrel
