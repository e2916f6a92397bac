// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "platform/desktop_services.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

/// The shortcut on X11 through the X server, elsewhere through the desktop portal. Never both: a desktop that
/// has both would tell each press twice.
class DesktopKeyMonitor final : public KeyMonitor {
 public:
  struct Parts {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<Bus> sessionBus;
    std::shared_ptr<EventThread> displays;               ///< the thread for the display servers
    std::shared_ptr<const SessionEvents> sessionEvents;  ///< who knows whether the screen is locked
    std::string description;                             ///< what the shortcut does, for the portal's dialog
  };

  explicit DesktopKeyMonitor(Parts parts);
  ~DesktopKeyMonitor() override;
  DesktopKeyMonitor(const DesktopKeyMonitor&) = delete;
  DesktopKeyMonitor& operator=(const DesktopKeyMonitor&) = delete;

  [[nodiscard]] bool canObserve() const override;
  [[nodiscard]] Registration observe(std::function<void()> pressed) override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace sentrel
