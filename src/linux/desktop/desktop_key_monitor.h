// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "linux/desktop/desktop_portal.h"
#include "linux/desktop/event_thread.h"
#include "platform/desktop_services.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

class PortalShortcuts;
class X11KeyMonitor;

/// The shortcuts on X11 through the X server, elsewhere through the desktop portal. Never both: a desktop
/// that has both would tell each press twice.
class DesktopKeyMonitor final : public KeyMonitor {
 public:
  struct Parts {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<DesktopPortal> portal;
    std::shared_ptr<UserDefaults> userDefaults;          ///< remembers what the portal granted
    std::shared_ptr<EventThread> displays;               ///< the thread for the display servers
    std::shared_ptr<const SessionEvents> sessionEvents;  ///< who knows whether the screen is locked
    std::array<std::string, 2> descriptions;             ///< what each does, for the portal's dialog
  };

  explicit DesktopKeyMonitor(Parts parts);
  ~DesktopKeyMonitor() override;
  DesktopKeyMonitor(const DesktopKeyMonitor&) = delete;
  DesktopKeyMonitor& operator=(const DesktopKeyMonitor&) = delete;

  [[nodiscard]] ShortcutGrant grant(Shortcut shortcut) const override { return of(shortcut).grant; }
  [[nodiscard]] Registration observe(Shortcut shortcut, std::function<void()> pressed) override;
  void forget(Shortcut shortcut) override;

 private:
  /// What is known of one shortcut.
  struct Observed {
    ShortcutGrant grant{};
    std::shared_ptr<const std::function<void()>> observer;  // whose registration holds it weakly
    ThreadBound<X11KeyMonitor> x11;                         // while observed
  };

  [[nodiscard]] Observed& of(Shortcut shortcut) { return observed_[static_cast<std::size_t>(shortcut)]; }
  [[nodiscard]] const Observed& of(Shortcut shortcut) const {
    return observed_[static_cast<std::size_t>(shortcut)];
  }
  void begin(Shortcut shortcut);
  void setGrant(Shortcut shortcut, ShortcutGrant grant);
  void pressed(Shortcut shortcut) const;

  const Parts parts_;
  const bool onX11_;
  std::shared_ptr<DesktopKeyMonitor*> self_ = std::make_shared<DesktopKeyMonitor*>(this);
  std::array<Observed, 2> observed_;
  std::unique_ptr<PortalShortcuts> portal_;  // once one is wanted
};

}  // namespace sentrel
