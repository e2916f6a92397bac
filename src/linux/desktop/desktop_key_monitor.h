// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "platform/desktop_services.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

class X11KeyMonitor;

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

  [[nodiscard]] bool canObserve() const override { return possible_; }
  [[nodiscard]] Registration observe(std::function<void()> pressed) override;

 private:
  class Portal;

  void begin();
  void setPossible(bool possible);
  void pressed() const;

  const Parts parts_;
  const bool onX11_;
  bool possible_ = false;
  std::shared_ptr<const std::function<void()>> observer_;  // whose registration holds it weakly
  std::shared_ptr<DesktopKeyMonitor*> self_ = std::make_shared<DesktopKeyMonitor*>(this);
  ThreadBound<X11KeyMonitor> x11_;  // while observed
  std::unique_ptr<Portal> portal_;  // once wanted
};

}  // namespace sentrel
