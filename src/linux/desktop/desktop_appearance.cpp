// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_appearance.h"

#include <utility>

namespace sentrel {

DesktopAppearance::DesktopAppearance(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses)
    : buses_(std::move(buses)) {
  const auto tell = [loop = std::move(mainLoop),
                     weak = std::weak_ptr(appearance_)](const Appearance& appearance) {
    loop->post([weak, appearance] {
      const auto live = weak.lock();
      if (live && live->get() != appearance) *live = appearance;
    });
  };
  portal_ = buses_->reside<PortalAppearance>(
      [tell](Buses& both) { return std::make_unique<PortalAppearance>(both.session, tell); });
}

}  // namespace sentrel
