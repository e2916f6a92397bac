// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "linux/desktop/bus.h"
#include "linux/desktop/desktop_portal.h"
#include "linux/desktop/event_thread.h"
#include "platform/desktop_services.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

class KdeShortcuts;
class PortalShortcuts;
class X11KeyMonitor;

/// The shortcuts on X11 through the X server, elsewhere through KDE's own service where there is one, else
/// through the desktop portal. Never two of them: a desktop that has both would tell each press twice.
class DesktopKeyMonitor final : public KeyMonitor {
 public:
  struct Parts {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<Bus> sessionBus;
    std::shared_ptr<DesktopPortal> portal;
    std::shared_ptr<UserDefaults> userDefaults;          ///< remembers what the portal granted
    std::shared_ptr<EventThread> displays;               ///< the thread for the display servers
    std::shared_ptr<const SessionEvents> sessionEvents;  ///< who knows whether the screen is locked
    std::array<std::string, 2> descriptions;             ///< what each does, in the desktop's words for it
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
  void useKde();
  void usePortal();
  void begin(Shortcut shortcut);
  void setGrant(Shortcut shortcut, ShortcutGrant grant);
  void pressed(Shortcut shortcut) const;

  const Parts parts_;
  const bool onX11_;
  std::shared_ptr<DesktopKeyMonitor*> self_ = std::make_shared<DesktopKeyMonitor*>(this);
  std::array<Observed, 2> observed_;
  std::unique_ptr<PortalShortcuts> portal_;  // neither on X11 nor where KDE's service is known to be
  std::unique_ptr<KdeShortcuts> kde_;        // on KDE's desktop, but on X11
};

}  // namespace sentrel
