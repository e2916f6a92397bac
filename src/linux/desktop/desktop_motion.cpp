// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_motion.h"

#include <utility>

namespace sentrel {

DesktopMotion::DesktopMotion(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses)
    : buses_(std::move(buses)) {
  const auto tell = [loop = std::move(mainLoop), weak = std::weak_ptr(reduced_)](bool reduced) {
    loop->post([weak, reduced] {
      const auto live = weak.lock();
      if (live && live->get() != reduced) *live = reduced;
    });
  };
  portal_ = buses_->reside<PortalMotion>(
      [tell](Buses& both) { return std::make_unique<PortalMotion>(both.session, tell); });
}

}  // namespace sentrel
