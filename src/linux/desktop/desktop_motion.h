// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_thread.h"
#include "linux/desktop/portal_motion.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// Whether the person asked the desktop for less movement; not so until it says otherwise. Main thread.
class DesktopMotion {
 public:
  DesktopMotion(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses);

  /// Published when it changes.
  [[nodiscard]] const Published<bool>& reduced() const { return *reduced_; }

 private:
  std::shared_ptr<Published<bool>> reduced_ = std::make_shared<Published<bool>>(false);
  std::shared_ptr<BusThread> buses_;
  Resident<PortalMotion> portal_;
};

}  // namespace sentrel
