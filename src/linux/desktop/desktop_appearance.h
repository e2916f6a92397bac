// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_thread.h"
#include "linux/desktop/portal_appearance.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// What the person asked of the desktop's looks; nothing until it says otherwise. Main thread.
class DesktopAppearance {
 public:
  DesktopAppearance(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses);

  /// Published when it changes.
  [[nodiscard]] const Published<Appearance>& appearance() const { return *appearance_; }

 private:
  std::shared_ptr<Published<Appearance>> appearance_ = std::make_shared<Published<Appearance>>();
  std::shared_ptr<BusThread> buses_;
  Resident<PortalAppearance> portal_;
};

}  // namespace sentrel
